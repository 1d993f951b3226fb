#include "Platform/ChildProcess.h"

#include "Base/Text.h"
#include "Platform/FileDescriptor.h"
#include "Platform/Files.h"
#include "Platform/SystemError.h"

#include <fmt/format.h>

#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <csignal>
#include <limits>
#include <type_traits>

namespace veltry::ChildProcess {

static_assert(std::is_same_v<ProcessID, pid_t>);

namespace {

/// posix_spawn's two records, filled and freed together. An action that can't be recorded throws StartFailure.
class SpawnActions {
public:
    explicit SpawnActions(std::string executable) : executable_(std::move(executable))
    {
        check(posix_spawn_file_actions_init(&actions_));
        if (const int result = posix_spawnattr_init(&attributes_); result != 0) {
            // No destructor runs for what wasn't constructed.
            posix_spawn_file_actions_destroy(&actions_);
            check(result);
        }
    }
    SpawnActions(const SpawnActions&) = delete;
    SpawnActions& operator=(const SpawnActions&) = delete;
    ~SpawnActions()
    {
        posix_spawn_file_actions_destroy(&actions_);
        posix_spawnattr_destroy(&attributes_);
    }

    void redirect(const Stream& stream, int target)
    {
        switch (stream.kind) {
        case Stream::Kind::null:
            check(posix_spawn_file_actions_addopen(
                &actions_, target, "/dev/null", target == STDIN_FILENO ? O_RDONLY : O_WRONLY, 0));
            break;
        case Stream::Kind::descriptor:
            check(posix_spawn_file_actions_adddup2(&actions_, stream.descriptor, target));
            break;
        case Stream::Kind::append:
            check(posix_spawn_file_actions_addopen(
                &actions_, target, stream.file.c_str(), O_WRONLY | O_APPEND | O_CREAT, 0644));
            break;
        case Stream::Kind::sameAsOutput:
            check(posix_spawn_file_actions_adddup2(&actions_, STDOUT_FILENO, target));
            break;
        }
    }

    void changeDirectory(const std::filesystem::path& directory)
    {
        check(posix_spawn_file_actions_addchdir_np(&actions_, directory.c_str()));
    }

    /// Asked for last: the actions run in the order in which they were added, and the redirections need what this
    /// closes.
    void closeTheRest() { check(posix_spawn_file_actions_addclosefrom_np(&actions_, STDERR_FILENO + 1)); }

    void setGroupAndSignals(Group group)
    {
        short flags = POSIX_SPAWN_SETSIGDEF | POSIX_SPAWN_SETSIGMASK;
        if (group == Group::own) {
            check(posix_spawnattr_setpgroup(&attributes_, 0));
            flags |= POSIX_SPAWN_SETPGROUP;
        } else if (group == Group::ownSession) {
            flags |= POSIX_SPAWN_SETSID;
        }
        // Ignored signals and the mask would pass to the child, which has to begin with the defaults whatever we ignore
        // or block.
        sigset_t signals;
        sigfillset(&signals);
        check(posix_spawnattr_setsigdefault(&attributes_, &signals));
        sigemptyset(&signals);
        check(posix_spawnattr_setsigmask(&attributes_, &signals));
        check(posix_spawnattr_setflags(&attributes_, flags));
    }

    ProcessID spawn(std::vector<char*>& arguments, std::vector<char*>& environment)
    {
        ProcessID child = -1;
        check(posix_spawn(&child, executable_.c_str(), &actions_, &attributes_, arguments.data(), environment.data()));
        return child;
    }

private:
    void check(int result) const
    {
        if (result != 0) // the error number itself; errno isn't set
            throw StartFailure(executable_, result);
    }

    std::string executable_;
    posix_spawn_file_actions_t actions_;
    posix_spawnattr_t attributes_;
};

/// Lead into `texts`, with the null at the end that posix_spawn looks for.
std::vector<char*> pointers(std::vector<std::string>& texts)
{
    std::vector<char*> result;
    result.reserve(texts.size() + 1);
    for (std::string& text : texts)
        result.push_back(text.data());
    result.push_back(nullptr);
    return result;
}

/// As a shell tells it: the end by a signal is 128 and its number.
int exitNumber(int status)
{
    if (WIFSIGNALED(status))
        return 128 + WTERMSIG(status);
    return WEXITSTATUS(status);
}

using Deadline = std::optional<std::chrono::steady_clock::time_point>;

/// In milliseconds, as poll(2) takes it.
int timeLeft(const Deadline& deadline)
{
    if (!deadline)
        return -1;
    // Rounded up, so that no wait ends before its deadline.
    const auto left =
        std::chrono::ceil<std::chrono::milliseconds>(*deadline - std::chrono::steady_clock::now()).count();
    return static_cast<int>(std::clamp<std::int64_t>(left, 0, std::numeric_limits<int>::max()));
}

/// Reads all of them to their ends at once, so that a child which writes much to any of them can't block. False if the
/// deadline came first, or a signal that this process handles: Ctrl-C must not wait for somebody's patience.
template <std::size_t count>
bool drain(
    const std::array<const FileDescriptor*, count>& sources, const std::array<std::string*, count>& targets,
    const Deadline& deadline = {})
{
    std::array<pollfd, count> polled{};
    for (std::size_t index = 0; index < count; ++index)
        polled[index] = {.fd = sources[index]->get(), .events = POLLIN, .revents = 0};
    std::size_t open = count;
    std::vector<char> buffer(65536);
    while (open > 0) {
        const int ready = ::poll(polled.data(), polled.size(), timeLeft(deadline));
        if (ready == 0)
            return false;
        if (ready < 0) {
            if (errno == EINTR && deadline)
                return false;
            if (errno == EINTR)
                continue;
            throw SystemError("could not wait for a child's output");
        }
        for (std::size_t index = 0; index < count; ++index) {
            if (polled[index].fd < 0 || polled[index].revents == 0)
                continue;
            const ssize_t got = ::read(polled[index].fd, buffer.data(), buffer.size());
            if (got < 0 && errno == EINTR)
                continue;
            if (got <= 0) { // the end; a failure to read is one too
                polled[index].fd = -1;
                --open;
                continue;
            }
            targets[index]->append(buffer.data(), static_cast<std::size_t>(got));
        }
    }
    return true;
}

/// Waits for a started child however its scope is left.
class Reaper {
public:
    explicit Reaper(ProcessID child) : child_(child) {}
    Reaper(const Reaper&) = delete;
    Reaper& operator=(const Reaper&) = delete;
    ~Reaper()
    {
        if (child_ > 0)
            static_cast<void>(ChildProcess::wait(child_));
    }
    int wait() { return ChildProcess::wait(std::exchange(child_, -1)); }

private:
    ProcessID child_;
};

} // namespace

std::string StartFailure::description() const
{
    return SystemError("could not start " + executable, code).description();
}

ProcessID start(const Command& command)
{
    SpawnActions actions(command.executable);
    // The output before the errors, which may go to the same place.
    actions.redirect(command.input, STDIN_FILENO);
    actions.redirect(command.output, STDOUT_FILENO);
    actions.redirect(command.error, STDERR_FILENO);
    // After the redirections, whose relative paths are meant from our own folder.
    if (!command.directory.empty())
        actions.changeDirectory(command.directory);
    actions.closeTheRest();
    actions.setGroupAndSignals(command.group);

    std::vector<std::string> arguments{command.executable};
    arguments.insert(arguments.end(), command.arguments.begin(), command.arguments.end());
    std::vector<std::string> environment;
    environment.reserve(command.environment.size());
    for (const auto& [name, value] : command.environment)
        environment.push_back(fmt::format("{}={}", name, value));
    std::vector<char*> argumentPointers = pointers(arguments);
    std::vector<char*> environmentPointers = pointers(environment);
    return actions.spawn(argumentPointers, environmentPointers);
}

std::optional<std::filesystem::path> find(const std::string& command, std::string_view path)
{
    const auto isProgram = [](const std::filesystem::path& file) {
        return Files::isExecutable(file) && !Files::isFolder(file);
    };
    if (command.contains('/'))
        return isProgram(command) ? std::optional(std::filesystem::absolute(command)) : std::nullopt;
    for (const std::string_view folder : text::split(path, ':'))
        if (const auto file = std::filesystem::path(folder) / command; !folder.empty() && isProgram(file))
            return std::filesystem::absolute(file);
    return std::nullopt;
}

const int endedByLostBytes = 128 + SIGBUS;

int wait(ProcessID child) noexcept
{
    int status = 0;
    while (::waitpid(child, &status, 0) < 0)
        if (errno != EINTR)
            return -1;
    return exitNumber(status);
}

bool reapIfEnded(ProcessID child) noexcept
{
    int status = 0;
    return ::waitpid(child, &status, WNOHANG) != 0; // a failure means that somebody else took it
}

namespace {

/// A negative number names a group (kill(2)); but 0 is our own group, and -1 all processes of the user.
void signalGroup(ProcessID leader, int signal) noexcept
{
    if (leader > 1)
        ::kill(-leader, signal);
}

} // namespace

void terminateGroup(ProcessID leader) noexcept
{
    signalGroup(leader, SIGTERM);
}

void killGroup(ProcessID leader) noexcept
{
    signalGroup(leader, SIGKILL);
}

namespace {

/// Waits that many milliseconds for a child's end. False also without the means to wait: then there is no grace.
bool hasEnded(ProcessID child, int milliseconds) noexcept
try {
    const FileDescriptor event = exitEvent(child);
    pollfd polled{.fd = event.get(), .events = POLLIN, .revents = 0};
    return ::poll(&polled, 1, milliseconds) == 1;
} catch (const SystemError&) {
    return false;
}

} // namespace

int endGroup(ProcessID leader, std::chrono::milliseconds grace) noexcept
{
    terminateGroup(leader);
    if (!hasEnded(leader, static_cast<int>(grace.count())))
        killGroup(leader);
    // Only now: until its status is taken no other process or group can get its id.
    return wait(leader);
}

FileDescriptor exitEvent(ProcessID child)
{
    // By number, since glibc 2.36 declares pidfd_open without extern "C".
    FileDescriptor event(static_cast<int>(::syscall(SYS_pidfd_open, child, 0))); // close-on-exec by itself
    if (!event)
        throw SystemError("could not watch a child process");
    return event;
}

Output run(Command command)
{
    Pipe output = Pipe::make();
    Pipe error = Pipe::make();
    command.output = Stream::to(output.writing.get());
    command.error = Stream::to(error.writing.get());
    Reaper child(start(command));
    // Our own copies of the writing ends would keep the end of the output from ever coming.
    output.writing.reset();
    error.writing.reset();

    Output result;
    drain<2>({&output.reading, &error.reading}, {&result.output, &result.error});
    result.exitNumber = child.wait();
    return result;
}

std::optional<Output> runWithin(std::chrono::milliseconds patience, Command command)
{
    const Deadline deadline = std::chrono::steady_clock::now() + patience;
    Pipe output = Pipe::make();
    Pipe error = Pipe::make();
    command.output = Stream::to(output.writing.get());
    command.error = Stream::to(error.writing.get());
    // So that what it starts is ended with it, and nothing of it asks at our terminal.
    command.group = Group::ownSession;
    const ProcessID leader = start(command);
    Reaper child(leader);
    output.writing.reset();
    error.writing.reset();

    Output result;
    // It may have closed its ends of the pipes and go on all the same.
    const bool isWhole = drain<2>({&output.reading, &error.reading}, {&result.output, &result.error}, deadline) &&
                         hasEnded(leader, timeLeft(deadline));
    if (!isWhole) {
        killGroup(leader);
        return std::nullopt;
    }
    result.exitNumber = child.wait();
    return result;
}

Output runPipeline(Command first, Command second)
{
    Pipe between = Pipe::make();
    Pipe output = Pipe::make();
    Pipe error = Pipe::make();
    first.output = Stream::to(between.writing.get());
    first.error = Stream::to(error.writing.get());
    second.input = Stream::to(between.reading.get());
    second.output = Stream::to(output.writing.get());
    second.error = Stream::to(error.writing.get());

    // The sink first: if it can't be started, there is no source that waits for a reader.
    Reaper sink(start(second));
    between.reading.reset();
    output.writing.reset();
    // Closed on every way out before the sink is waited for, since it reads until nobody holds the writing end.
    FileDescriptor sourceEnd = std::move(between.writing);
    Reaper source(start(first));
    sourceEnd.reset();
    error.writing.reset();

    Output result;
    drain<2>({&output.reading, &error.reading}, {&result.output, &result.error});
    const int sourceNumber = source.wait();
    const int sinkNumber = sink.wait();
    result.exitNumber = sourceNumber != 0 ? sourceNumber : sinkNumber;
    return result;
}

} // namespace veltry::ChildProcess
