#pragma once

#include "Platform/ChildProcess.h"

#include <asio/any_io_executor.hpp>
#include <asio/awaitable.hpp>

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string_view>

namespace veltry {

/// A child and what it writes to one of its streams, watched on one serial executor, on which everything is called.
///
/// The watch keeps itself going until the child has ended and what it wrote was read, whoever has let go of it: so no
/// zombie stays, and no full pipe holds up the child. Where the executor goes first, the child's group is ended.
class WatchedChild {
public:
    /// Gets what the child wrote, in the pieces in which it came. It may not call the child.
    using Taker = std::function<void(std::string_view bytes)>;

    /// Starts a command that leads a group of its own, with a pipe in place of the stream that is watched (such as
    /// &ChildProcess::Command::error). `grace` is what its group gets to end by itself where the executor goes first.
    /// Throws ChildProcess::StartFailure and SystemError, and then nothing runs.
    [[nodiscard]] static std::shared_ptr<WatchedChild> start(
        const asio::any_io_executor& executor, ChildProcess::Command command,
        ChildProcess::Stream ChildProcess::Command::* watched, Taker take, std::chrono::milliseconds grace);
    ~WatchedChild();
    WatchedChild(const WatchedChild&) = delete;
    WatchedChild& operator=(const WatchedChild&) = delete;

    /// As ChildProcess::wait() gives it; nothing while the child runs.
    [[nodiscard]] std::optional<std::int32_t> exitNumber() const noexcept;
    /// Waits for the child's end. Any number may wait.
    [[nodiscard]] static asio::awaitable<std::int32_t> exit(std::shared_ptr<WatchedChild> self);
    /// Whether everything that came was read and nothing more can come.
    [[nodiscard]] bool hasReadAll() const noexcept;

    /// Nobody wants what the child writes any more. It is still read, and closed when the child has ended, since a
    /// process that it left behind may hold it open for ever.
    void ignoreOutput() noexcept;

    /// To the child's group; nothing once the child has ended.
    void terminate() noexcept;
    void kill() noexcept;

private:
    struct Watch;
    explicit WatchedChild(std::unique_ptr<Watch> watch);

    static asio::awaitable<void> readOutput(std::shared_ptr<WatchedChild> self);
    static asio::awaitable<void> watchEnd(std::shared_ptr<WatchedChild> self, FileDescriptor event);
    [[nodiscard]] bool isRunning() const noexcept;
    void closeOutputIfDone() noexcept;

    std::unique_ptr<Watch> watch_;
};

/// Waits on the caller's executor for the end of a child of ours and takes its status, so that no zombie stays. Leaves
/// the child alone where the executor goes first. Throws SystemError.
[[nodiscard]] asio::awaitable<std::int32_t> reaped(ProcessID child);

} // namespace veltry
