#pragma once

#include <filesystem>
#include <memory>
#include <stop_token>
#include <thread>

namespace veltry::RunLog {

/// Follows a growing log and writes beside it when each line was first seen.
///
/// One stamper belongs to one log and works on a thread of its own. It looks soon after the log has grown, at most
/// about once in a millisecond, and once a second where the file system tells nothing. A look goes up to the size that
/// the log had when it began, in pieces, and gives all lines that it finds one time. So neither gigabytes nor a process
/// that prints for ever cost more than a fixed amount of memory, and stop() comes to an end.
///
/// No byte of the log is read twice. If somebody cuts the log short, nothing is stamped until it has grown past where
/// the last look ended. What can't be read is tried again at the next look; what can't be written is lost, and later
/// lines get lower numbers than their places in the log.
class Stamper {
public:
    /// Touches no file.
    explicit Stamper(std::filesystem::path log);
    Stamper(const Stamper&) = delete;
    Stamper& operator=(const Stamper&) = delete;
    /// Stops it.
    ~Stamper();

    /// Makes the log and its side file if they aren't there, stamps what the log holds already, and begins to watch.
    /// Called once. Throws SystemError, or std::system_error for want of a thread, and then nothing is left open.
    void start();

    /// Looks once more, at what the log holds now, and closes everything; returns when the thread has ended. Before
    /// start() or after a failed one, and at a second call, it does nothing.
    void stop() noexcept;

private:
    struct Work;

    std::filesystem::path log_;
    std::unique_ptr<Work> work_; // the thread's alone while it runs
    std::jthread thread_;
};

} // namespace veltry::RunLog
