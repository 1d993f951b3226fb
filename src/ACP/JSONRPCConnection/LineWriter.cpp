#include "ACP/JSONRPCConnection/LineWriter.h"

#include "ACP/JSONRPCConnection/ConnectionError.h"
#include "Platform/SystemError.h"

#include <climits>

#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <algorithm>
#include <array>

namespace veltry {

namespace {

/// A pipe that has room at all has room for this much, so a blocking write of it doesn't block (pipe(7)).
constexpr std::size_t atomicSize = PIPE_BUF;

} // namespace

LineWriter::LineWriter(FileDescriptor file)
    : file_(std::move(file)), stopEvent_(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)),
      isTerminal_(::isatty(file_.get()) == 1)
{
    if (!stopEvent_)
        throw SystemError("could not make an event");
}

LineWriter::~LineWriter()
{
    stop();
}

bool LineWriter::writeIfPossible(const std::string& bytes)
{
    // A terminal may stop taking bytes in the middle of a write.
    if (bytes.size() > atomicSize || isTerminal_)
        return false;
    {
        const std::scoped_lock lock(mutex_);
        if (stopped_ || !jobs_.empty())
            return false;
    }
    pollfd polled{.fd = file_.get(), .events = POLLOUT, .revents = 0};
    if (::poll(&polled, 1, 0) != 1 || (polled.revents & POLLOUT) == 0)
        return false;
    const ssize_t count = ::write(file_.get(), bytes.data(), bytes.size());
    if (count == static_cast<ssize_t>(bytes.size()))
        return true;
    if (count < 0 && (errno == EINTR || errno == EAGAIN))
        return false;
    if (count < 0)
        throw SystemError("could not write to the peer");
    writeAll(bytes.substr(static_cast<std::size_t>(count))); // a disk that is nearly full; the rest says so
    return true;
}

void LineWriter::write(std::string bytes, Done done)
{
    {
        const std::scoped_lock lock(mutex_);
        if (!stopped_) {
            jobs_.push_back({std::move(bytes), std::move(done)});
            if (!thread_.joinable())
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
    ::eventfd_write(stopEvent_.get(), 1);
    arrival_.notify_one();
    if (thread_.joinable())
        thread_.join();
    for (Job& job : std::exchange(jobs_, {}))
        job.done(std::make_exception_ptr(ConnectionError::closed()));
    file_.reset();
}

void LineWriter::run()
{
    std::unique_lock lock(mutex_);
    while (true) {
        arrival_.wait(lock, [this] { return stopped_ || !jobs_.empty(); });
        if (stopped_)
            return;
        // It stays in place while others are added after it.
        Job& job = jobs_.front();
        lock.unlock();
        std::exception_ptr failure;
        try {
            writeAll(job.bytes);
        } catch (...) {
            failure = std::current_exception();
        }
        lock.lock();
        const Done done = std::move(job.done);
        jobs_.pop_front();
        lock.unlock();
        done(std::move(failure)); // whose last reference then goes on the thread that hears of it
        lock.lock();
    }
}

void LineWriter::writeAll(const std::string& bytes)
{
    for (std::size_t done = 0; done < bytes.size();) {
        if (!waitForRoom())
            throw ConnectionError::closed();
        const std::size_t piece = std::min(atomicSize, bytes.size() - done);
        const ssize_t count = ::write(file_.get(), bytes.data() + done, piece);
        if (count < 0 && errno != EINTR && errno != EAGAIN)
            throw SystemError("could not write to the peer");
        if (count > 0)
            done += static_cast<std::size_t>(count);
    }
}

/// Blocks until the peer takes more; false once stop() was called.
bool LineWriter::waitForRoom() const
{
    std::array<pollfd, 2> polled{
        pollfd{.fd = stopEvent_.get(), .events = POLLIN, .revents = 0},
        pollfd{.fd = file_.get(), .events = POLLOUT, .revents = 0}};
    while (::poll(polled.data(), polled.size(), -1) < 0)
        if (errno != EINTR)
            throw SystemError("could not wait for the peer");
    return polled[0].revents == 0;
}

} // namespace veltry
