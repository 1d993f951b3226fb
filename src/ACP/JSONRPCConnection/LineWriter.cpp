#include "ACP/JSONRPCConnection/LineWriter.h"

#include "ACP/JSONRPCConnection/ConnectionError.h"

#include <utility>

namespace veltry {

LineWriter::LineWriter(FileDescriptor file) : output_(std::move(file)) {}

LineWriter::~LineWriter()
{
    stop();
}

bool LineWriter::writeIfPossible(const std::string& bytes)
{
    {
        const std::scoped_lock lock(mutex_);
        if (stopped_ || !jobs_.empty())
            return false;
    }
    // Nothing is queued, so the thread isn't writing; and only this thread could queue something.
    return output_.writeIfPossible(bytes);
}

void LineWriter::write(std::string bytes, Done done)
{
    {
        const std::scoped_lock lock(mutex_);
        if (!stopped_) {
            jobs_.push_back({std::move(bytes), std::move(done)});
            if (!thread_.joinable()) // most peers read fast enough never to need one
                thread_ = std::thread([this] { run(); });
            arrival_.notify_one();
            return;
        }
    }
    done(std::make_exception_ptr(ConnectionError::closed()));
}

void LineWriter::stop() noexcept
{
    {
        const std::scoped_lock lock(mutex_);
        if (std::exchange(stopped_, true))
            return;
    }
    // The thread may stand in a write that its peer never takes, so before it is waited for.
    output_.stop();
    arrival_.notify_one();
    if (thread_.joinable())
        thread_.join();
    // Only now: the thread told its own job's end itself.
    for (Job& job : std::exchange(jobs_, {}))
        job.done(std::make_exception_ptr(ConnectionError::closed()));
    output_.close();
}

void LineWriter::run()
{
    std::unique_lock lock(mutex_);
    while (true) {
        arrival_.wait(lock, [this] { return stopped_ || !jobs_.empty(); });
        if (stopped_)
            return;
        // The job stays in the queue while it is written: an empty queue tells writeIfPossible() that nobody writes. A
        // deque doesn't move it when others are added after it.
        Job& job = jobs_.front();
        lock.unlock();
        std::exception_ptr failure;
        try {
            if (!output_.writeAll(job.bytes))
                throw ConnectionError::closed();
        } catch (...) {
            failure = std::current_exception();
        }
        lock.lock();
        const Done done = std::move(job.done);
        jobs_.pop_front();
        lock.unlock();
        // Without the lock, since whoever hears of it may write the next line. The failure's last reference goes on the
        // thread that hears of it.
        done(std::move(failure));
        lock.lock();
    }
}

} // namespace veltry
