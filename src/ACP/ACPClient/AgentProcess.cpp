#include "ACP/ACPClient/AgentProcess.h"

#include "Base/Text.h"
#include "Platform/Files.h"

#include <asio/co_spawn.hpp>
#include <asio/detached.hpp>

#include <utility>
#include <vector>

namespace veltry {

namespace {

/// What an agent gets for its end where nobody is left to wait for it.
constexpr std::chrono::milliseconds lastGrace(1000);

bool isProgram(const std::filesystem::path& path)
{
    return Files::isExecutable(path) && !Files::isFolder(path);
}

} // namespace

/// What the agent's handle shares with the two tasks that watch it.
struct AgentProcess::State {
    State(const asio::any_io_executor& owner, FileDescriptor standardError)
        : executor(owner), errors(owner, standardError.release())
    {
    }

    State(const State&) = delete;
    State& operator=(const State&) = delete;

    ~State()
    {
        // Running still: the executor was destroyed first, and with it the task that waits for the end.
        if (isRunning())
            ChildProcess::endGroup(leader, lastGrace);
    }

    [[nodiscard]] bool isRunning() const { return leader > 0 && !exitCode; }

    static asio::awaitable<void> readErrors(std::shared_ptr<State> self);
    static asio::awaitable<void> watchExit(std::shared_ptr<State> self, asio::posix::stream_descriptor exited);

    /// A process that the agent left behind may hold its standard error open for ever.
    void closeErrorsIfDone()
    {
        asio::error_code ignored;
        if (isDropped && !isRunning())
            errors.close(ignored);
    }

    asio::any_io_executor executor;
    asio::posix::stream_descriptor errors;
    std::string errorTail;
    pid_t leader = -1;
    bool isDropped = false; // the handle has gone
    std::optional<std::int32_t> exitCode;
    std::vector<std::shared_ptr<Mailbox<std::int32_t>>> waiting;
};

asio::awaitable<void> AgentProcess::State::readErrors(std::shared_ptr<State> self)
{
    std::vector<char> buffer(stderrLimit);
    while (true) {
        // The end counts as a failure too.
        asio::error_code failure;
        const std::size_t count = co_await self->errors.async_read_some(
            asio::buffer(buffer), asio::redirect_error(asio::use_awaitable, failure));
        if (failure)
            co_return;
        self->errorTail.append(buffer.data(), count);
        if (self->errorTail.size() > stderrLimit)
            self->errorTail.erase(0, self->errorTail.size() - stderrLimit);
    }
}

asio::awaitable<void> AgentProcess::State::watchExit(std::shared_ptr<State> self, asio::posix::stream_descriptor exited)
{
    co_await exited.async_wait(asio::posix::stream_descriptor::wait_read, asio::use_awaitable);
    const std::int32_t status = ChildProcess::wait(self->leader);
    self->exitCode = status;
    // Emptied before anybody is told, since who is told may wait again.
    for (const auto& waiter : std::exchange(self->waiting, {}))
        waiter->push(status);
    self->closeErrorsIfDone();
}

std::filesystem::path AgentProcess::find(const std::string& command, std::string_view path)
{
    if (command.contains('/')) {
        // Absolute, since the agent starts in a folder of its own.
        if (isProgram(command))
            return std::filesystem::absolute(command);
        throw Failure::notFound(command);
    }
    for (const std::string_view folder : text::split(path, ':'))
        if (const auto candidate = std::filesystem::path(folder) / command; !folder.empty() && isProgram(candidate))
            return std::filesystem::absolute(candidate);
    throw Failure::notFound(command);
}

std::shared_ptr<AgentProcess> AgentProcess::start(
    const asio::any_io_executor& executor, const Harness& harness, const ChildProcess::Environment& environment,
    const std::filesystem::path& cwd)
{
    const auto path = environment.find("PATH");
    const std::filesystem::path executable =
        find(harness.executable, path == environment.end() ? std::string_view() : path->second);

    Pipe input = Pipe::make();
    Pipe output = Pipe::make();
    Pipe error = Pipe::make();
    auto state = std::make_shared<State>(executor, std::move(error.reading));
    auto transport = PipeTransport::make(executor, std::move(output.reading), std::move(input.writing));
    state->leader = ChildProcess::start(
        {.executable = executable,
         .arguments = harness.arguments,
         .environment = environment,
         .directory = cwd,
         .input = ChildProcess::Stream::to(input.reading.get()),
         .output = ChildProcess::Stream::to(output.writing.get()),
         .error = ChildProcess::Stream::to(error.writing.get()),
         .group = ChildProcess::Group::ownSession});
    // The event belongs to this child alone. Nobody waits for "any" child, which would take the status of others away.
    asio::posix::stream_descriptor exited(executor, ChildProcess::exitEvent(state->leader).release());
    asio::co_spawn(executor, State::readErrors(state), asio::detached);
    asio::co_spawn(executor, State::watchExit(state, std::move(exited)), asio::detached);
    return std::shared_ptr<AgentProcess>(new AgentProcess(std::move(state), std::move(transport)));
}

AgentProcess::AgentProcess(std::shared_ptr<State> state, std::shared_ptr<PipeTransport> transport)
    : state_(std::move(state)), transport_(std::move(transport))
{
}

AgentProcess::~AgentProcess()
{
    // The pipes go first: an agent that reads them ends by itself, and the signal is for one that doesn't.
    transport_->closeNow();
    terminate();
    state_->isDropped = true;
    state_->closeErrorsIfDone();
}

asio::awaitable<std::int32_t> AgentProcess::waitForExit()
{
    return exitOf(state_);
}

asio::awaitable<std::int32_t> AgentProcess::exitOf(std::shared_ptr<State> state)
{
    if (state->exitCode)
        co_return *state->exitCode;
    const auto waiter = std::make_shared<Mailbox<std::int32_t>>(state->executor);
    state->waiting.push_back(waiter);
    const std::optional<std::int32_t> status = co_await waiter->next();
    co_return status.value();
}

std::optional<std::int32_t> AgentProcess::exitCode() const noexcept
{
    return state_->exitCode;
}

std::string AgentProcess::recentStderr() const
{
    return text::repaired(state_->errorTail);
}

void AgentProcess::terminate() noexcept
{
    if (state_->isRunning())
        ChildProcess::terminateGroup(state_->leader);
}

} // namespace veltry
