#include "ACP/ACPClient/AgentProcess.h"

#include "Base/Text.h"

#include <utility>

namespace veltry {

namespace {

/// What an agent gets for its end where nobody is left to wait for it.
constexpr std::chrono::milliseconds lastGrace(1000);

} // namespace

std::filesystem::path AgentProcess::find(const std::string& command, std::string_view path)
{
    if (std::optional<std::filesystem::path> program = ChildProcess::find(command, path))
        return std::move(*program);
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
    auto transport = PipeTransport::make(executor, std::move(output.reading), std::move(input.writing));
    const auto errorTail = std::make_shared<std::string>();
    // An agent may print for days, and what it said last tells why it ended. The child shares the text, not the agent.
    const auto keepTail = [errorTail](std::string_view bytes) {
        errorTail->append(bytes);
        if (errorTail->size() > stderrLimit)
            errorTail->erase(0, errorTail->size() - stderrLimit);
    };
    auto child = WatchedChild::start(
        executor,
        {.executable = executable,
         .arguments = harness.arguments,
         .environment = environment,
         .directory = cwd,
         .input = ChildProcess::Stream::to(input.reading.get()),
         .output = ChildProcess::Stream::to(output.writing.get()),
         .error = {},
         .group = ChildProcess::Group::ownSession},
        &ChildProcess::Command::error, keepTail, lastGrace);
    return std::shared_ptr<AgentProcess>(new AgentProcess(std::move(child), std::move(transport), errorTail));
}

AgentProcess::AgentProcess(
    std::shared_ptr<WatchedChild> child, std::shared_ptr<PipeTransport> transport,
    std::shared_ptr<const std::string> errorTail)
    : child_(std::move(child)), transport_(std::move(transport)), errorTail_(std::move(errorTail))
{
}

AgentProcess::~AgentProcess()
{
    // The pipes go first: an agent that reads them ends by itself, and the signal is for one that doesn't.
    transport_->closeNow();
    child_->terminate();
    child_->ignoreOutput();
}

asio::awaitable<std::int32_t> AgentProcess::waitForExit()
{
    return WatchedChild::exit(child_);
}

std::optional<std::int32_t> AgentProcess::exitCode() const noexcept
{
    return child_->exitNumber();
}

std::string AgentProcess::recentStderr() const
{
    // The cut may have gone through a character.
    return text::repaired(*errorTail_);
}

void AgentProcess::terminate() noexcept
{
    child_->terminate();
}

} // namespace veltry
