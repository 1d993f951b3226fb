#pragma once

#include "Platform/FileDescriptor.h"
#include "Platform/SharedOutput.h"

#include <condition_variable>
#include <deque>
#include <exception>
#include <functional>
#include <mutex>
#include <string>
#include <thread>

namespace veltry {

/// Writes to a descriptor on a thread of its own, in the order of the calls, so that a peer which reads slowly blocks
/// nobody. The descriptor's flags stay as they are. The process ignores SIGPIPE.
class LineWriter {
public:
    /// Called on the writer's thread when the bytes are written, with null, or with what went wrong.
    using Done = std::function<void(std::exception_ptr)>;

    /// The thread starts with the first write().
    explicit LineWriter(FileDescriptor file);
    LineWriter(const LineWriter&) = delete;
    LineWriter& operator=(const LineWriter&) = delete;
    ~LineWriter();

    /// Writes at once, on the calling thread, if that can't block: little enough, room for it, and nothing before it.
    /// Throws SystemError.
    [[nodiscard]] bool writeIfPossible(const std::string& bytes);
    /// Queues the bytes. After stop() `done` is called with ConnectionError::closed().
    void write(std::string bytes, Done done);

    /// Ends a write that waits for its peer, calls every `done` that is left with ConnectionError::closed(), ends the
    /// thread and closes the descriptor. A second call does nothing. Not for the writer's own thread.
    void stop() noexcept;

private:
    struct Job {
        std::string bytes;
        Done done;
    };

    void run();

    SharedOutput output_;
    std::mutex mutex_; // guards the three below
    std::condition_variable arrival_;
    std::deque<Job> jobs_; // the first is the one that is being written
    bool stopped_ = false;
    std::thread thread_;
};

} // namespace veltry
