#include "ACP/ACPClient/ShellEnvironment.h"

#include "ACP/ACPClient/ShellEnvironmentReader.h"
#include "Platform/Async/Mailbox.h"
#include "Platform/Async/WatchedChild.h"
#include "Platform/StandardFolders.h"

#include <asio/co_spawn.hpp>
#include <asio/detached.hpp>
#include <asio/this_coro.hpp>
#include <fmt/format.h>

#include <memory>
#include <mutex>
#include <vector>

namespace veltry::ShellEnvironment {

namespace {

/// The two characters \0 make the shell's printf print a NUL byte.
std::string command()
{
    return fmt::format(
        R"(printf '\0{}\0'; env -0; printf '{}')", ShellEnvironmentReader::startMarker,
        ShellEnvironmentReader::endMarker);
}

/// After the shell's exit its output may still lie in the pipe, or come from a child that it left: this often, and this
/// long each time, we wait for the end marker.
constexpr int looksAfterExit = 50;
constexpr std::chrono::milliseconds pauseAfterExit(10);

/// One run of the shell, which two tasks keep going; the shell may outlive the answer.
class Probe {
public:
    /// Throws ChildProcess::StartFailure and SystemError.
    static std::shared_ptr<Probe> start(
        const asio::any_io_executor& executor, const std::filesystem::path& shell, const Environment& environment,
        std::chrono::seconds timeout);

    static asio::awaitable<Environment> answer(std::shared_ptr<Probe> self);

private:
    /// Why waiting for the shell stopped. The first counts.
    enum class Ending { read, exited, timedOut };

    explicit Probe(const asio::any_io_executor& executor) : timer_(executor), ending_(executor) {}

    void take(std::string_view output);
    static asio::awaitable<void> watchExit(std::shared_ptr<Probe> self);
    static asio::awaitable<void> watchTime(std::shared_ptr<Probe> self);
    static asio::awaitable<void> waitForTheRest(std::shared_ptr<Probe> self);

    std::shared_ptr<WatchedChild> shell_;
    asio::steady_timer timer_;
    Mailbox<Ending> ending_;
    ShellEnvironmentReader reader_;
};

std::shared_ptr<Probe> Probe::start(
    const asio::any_io_executor& executor, const std::filesystem::path& shell, const Environment& environment,
    std::chrono::seconds timeout)
{
    const std::shared_ptr<Probe> probe(new Probe(executor));
    // Weakly, since the probe holds the shell, which holds this.
    const auto take = [weak = std::weak_ptr(probe)](std::string_view bytes) {
        if (const std::shared_ptr<Probe> waiting = weak.lock())
            waiting->take(bytes);
    };
    probe->shell_ = WatchedChild::start(
        executor,
        {.executable = shell,
         // A login shell and an interactive one: variables are set in the files of either.
         .arguments = {"-ilc", command()},
         .environment = environment,
         .directory = {},
         .input = ChildProcess::Stream::null(),
         .output = {},
         .error = ChildProcess::Stream::null(),
         // An interactive shell in a session with a terminal would take that terminal for itself.
         .group = ChildProcess::Group::ownSession},
        &ChildProcess::Command::output, take, std::chrono::milliseconds(0));
    probe->timer_.expires_after(timeout);
    asio::co_spawn(executor, watchExit(probe), asio::detached);
    asio::co_spawn(executor, watchTime(probe), asio::detached);
    return probe;
}

asio::awaitable<Environment> Probe::answer(std::shared_ptr<Probe> self)
{
    const std::optional<Ending> ending = co_await self->ending_.next();
    if (ending == Ending::exited)
        co_await waitForTheRest(self);
    // A child that the profile left behind may hold it open for ever.
    self->shell_->ignoreOutput();
    // A shell that printed everything and then hangs has told what was asked.
    if (ending == Ending::timedOut && !self->reader_.isComplete())
        throw Failure(Failure::Kind::timedOut);
    co_return self->reader_.environment();
}

asio::awaitable<void> Probe::waitForTheRest(std::shared_ptr<Probe> self)
{
    asio::steady_timer pause(self->timer_.get_executor());
    for (int look = 0; look < looksAfterExit && !self->reader_.isComplete() && !self->shell_->hasReadAll(); ++look) {
        pause.expires_after(pauseAfterExit);
        co_await pause.async_wait(asio::use_awaitable);
    }
}

void Probe::take(std::string_view output)
{
    reader_.add(output);
    if (reader_.isComplete())
        ending_.push(Ending::read);
}

asio::awaitable<void> Probe::watchExit(std::shared_ptr<Probe> self)
{
    co_await WatchedChild::exit(self->shell_);
    self->timer_.cancel();
    self->ending_.push(Ending::exited);
}

asio::awaitable<void> Probe::watchTime(std::shared_ptr<Probe> self)
{
    asio::error_code cancelled;
    co_await self->timer_.async_wait(asio::redirect_error(asio::use_awaitable, cancelled));
    // A timer that was cancelled and one that ran out come here alike.
    if (self->shell_->exitNumber())
        co_return;
    self->shell_->kill();
    self->ending_.push(Ending::timedOut);
}

/// The answers of the whole process, by shell and environment.
struct Cache {
    std::mutex mutex;
    std::map<std::string, Environment> answers;
};

Cache& cache()
{
    static Cache instance;
    return instance;
}

std::string cacheKey(const std::filesystem::path& shell, const Environment& environment)
{
    std::string key = shell;
    // No variable can contain a NUL, so it parts them.
    for (const auto& [name, value] : environment)
        key += fmt::format("{}{}={}", '\0', name, value);
    return key;
}

std::optional<Environment> known(const std::string& key)
{
    const std::scoped_lock lock(cache().mutex);
    const auto found = cache().answers.find(key);
    return found == cache().answers.end() ? std::nullopt : std::optional(found->second);
}

std::string variable(const Environment& environment, const std::string& name, const std::string& otherwise)
{
    const auto found = environment.find(name);
    return found == environment.end() || found->second.empty() ? otherwise : found->second;
}

} // namespace

std::string Failure::description() const
{
    switch (kind) {
    case Kind::timedOut:
        return "the login shell did not start up in time";
    case Kind::unreadable:
        break;
    }
    return "the login shell did not tell its environment";
}

asio::awaitable<Environment> resolve(
    std::filesystem::path shell, Environment environment, std::chrono::nanoseconds timeout)
{
    const std::string key = cacheKey(shell, environment);
    if (std::optional<Environment> answer = known(key))
        co_return std::move(*answer);

    const asio::any_io_executor executor = co_await asio::this_coro::executor;
    const auto wholeSeconds = std::chrono::duration_cast<std::chrono::seconds>(timeout);
    // Two who ask at the same moment start a shell each. No lock is held over the wait, which may take seconds.
    const std::shared_ptr<Probe> probe = Probe::start(executor, shell, environment, wholeSeconds);
    Environment answer = co_await Probe::answer(probe);
    const std::scoped_lock lock(cache().mutex);
    cache().answers.insert_or_assign(key, answer);
    co_return answer;
}

void forget()
{
    const std::scoped_lock lock(cache().mutex);
    cache().answers.clear();
}

Environment fallback(Environment environment)
{
    const std::string home = variable(environment, "HOME", StandardFolders::home());
    const std::string path = variable(environment, "PATH", "/usr/bin:/bin");
    environment["PATH"] = fmt::format("/opt/homebrew/bin:/usr/local/bin:{}/.local/bin:{}", home, path);
    return environment;
}

} // namespace veltry::ShellEnvironment
