#pragma once

#include "ACP/ACPClient/Agent.h"
#include "ACP/ACPClient/Harness.h"
#include "ACP/JSONRPCConnection/PipeTransport.h"
#include "Base/Error.h"
#include "Platform/Async/WatchedChild.h"
#include "Platform/ChildProcess.h"

#include <cstdint>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

namespace veltry {

/// A running agent: its pipes, the tail of what it writes to standard error, and its exit.
///
/// It belongs to one serial executor, on which everything is called. The agent leads a session and so a process group
/// of its own, since what is started through `npx` is a tree of processes that a signal to `npx` alone would leave
/// behind; and it can't stop at a question that one of its commands asks at our terminal.
///
/// Its owner ends it by terminate(). One that is dropped while the agent runs closes the agent's input and terminates
/// it; the executor goes on watching for its end, so that no zombie stays. Where the executor goes first, the agent
/// gets a second, and is killed then. What an agent started in groups of their own is never touched.
class AgentProcess final : public Agent {
public:
    /// No executable file of that name is on the PATH, or at that path.
    struct Failure : Error {
        [[nodiscard]] static Failure notFound(std::string command) { return Failure(std::move(command)); }

        [[nodiscard]] std::string description() const override { return "could not find " + command; }

        std::string command;

    private:
        explicit Failure(std::string name) : command(std::move(name)) {}
    };

    /// So many bytes of standard error are kept, the last ones.
    static constexpr std::size_t stderrLimit = 65536;

    /// What ChildProcess::find() finds. Throws Failure.
    [[nodiscard]] static std::filesystem::path find(const std::string& command, std::string_view path);

    /// Starts it with that environment and nothing else, in the folder `cwd`; the executable is looked for on the
    /// environment's own PATH. Throws Failure, ChildProcess::StartFailure and SystemError, and then nothing runs.
    [[nodiscard]] static std::shared_ptr<AgentProcess> start(
        const asio::any_io_executor& executor, const Harness& harness, const ChildProcess::Environment& environment,
        const std::filesystem::path& cwd);
    ~AgentProcess() override;

    [[nodiscard]] std::shared_ptr<LineTransport> transport() override { return transport_; }

    [[nodiscard]] asio::awaitable<std::int32_t> waitForExit() override;

    /// The exit status, 128 + n if signal n ended it; nothing while it runs.
    [[nodiscard]] std::optional<std::int32_t> exitCode() const noexcept;
    /// The stored tail of standard error, with malformed UTF-8 repaired.
    [[nodiscard]] std::string recentStderr() const;
    /// Sends SIGTERM to the agent's group, and doesn't wait. Does nothing once the agent has ended.
    void terminate() noexcept;

private:
    AgentProcess(
        std::shared_ptr<WatchedChild> child, std::shared_ptr<PipeTransport> transport,
        std::shared_ptr<const std::string> errorTail);

    std::shared_ptr<WatchedChild> child_;
    std::shared_ptr<PipeTransport> transport_;
    std::shared_ptr<const std::string> errorTail_;
};

} // namespace veltry
