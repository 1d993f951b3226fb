#include "ACP/JSONRPCConnection/PipeTransport.h"

#include "Platform/SystemError.h"

#include <asio/post.hpp>

#include <poll.h>
#include <sys/epoll.h>
#include <unistd.h>

#include <array>

namespace veltry {

namespace {

/// Asio puts every descriptor that it gets into non-blocking mode, and that mode belongs to the open file, which a
/// shell or a parent may share. So Asio gets an epoll set of ours that holds the descriptor and is readable when it is.
/// No descriptor where epoll refuses: plain files and the null device, whose input is always ready.
FileDescriptor readinessOf(const FileDescriptor& input)
{
    FileDescriptor set(::epoll_create1(EPOLL_CLOEXEC));
    if (!set)
        throw SystemError("could not make an epoll set");
    epoll_event event{.events = EPOLLIN, .data = {}};
    if (::epoll_ctl(set.get(), EPOLL_CTL_ADD, input.get(), &event) == 0)
        return set;
    if (errno != EPERM)
        throw SystemError("could not watch the input");
    return FileDescriptor();
}

} // namespace

std::shared_ptr<PipeTransport> PipeTransport::make(
    const asio::any_io_executor& executor, FileDescriptor reading, FileDescriptor writing)
{
    return std::shared_ptr<PipeTransport>(new PipeTransport(executor, std::move(reading), std::move(writing)));
}

PipeTransport::PipeTransport(const asio::any_io_executor& executor, FileDescriptor reading, FileDescriptor writing)
    : executor_(executor), reading_(std::move(reading)), lines_(executor, [this] { return readMore(); }),
      writer_(std::move(writing))
{
    if (FileDescriptor set = readinessOf(reading_))
        readiness_.emplace(executor, set.release());
}

asio::awaitable<void> PipeTransport::send(std::string line)
{
    line += '\n';
    if (writer_.writeIfPossible(line))
        co_return;
    const auto written = std::make_shared<Mailbox<std::exception_ptr>>(executor_);
    const LineWriter::Done done = [written, executor = executor_](std::exception_ptr failure) {
        asio::post(executor, [written, failure = std::move(failure)] { written->push(failure); });
    };
    writer_.write(std::move(line), done);
    const std::optional<std::exception_ptr> failure = co_await written->next();
    if (failure && *failure)
        std::rethrow_exception(*failure);
}

bool PipeTransport::sendIfPossible(std::string& line)
{
    line += '\n';
    const bool sent = writer_.writeIfPossible(line);
    line.pop_back();
    return sent;
}

asio::awaitable<void> PipeTransport::close()
{
    closeNow();
    co_return;
}

void PipeTransport::closeNow() noexcept
{
    lines_.finish();
    asio::error_code ignored;
    if (readiness_)
        readiness_->cancel(ignored); // lets readMore() see it
    writer_.stop();
}

/// Waits for input and takes what is there.
asio::awaitable<void> PipeTransport::readMore()
{
    try {
        co_await inputReady();
        if (!lines_.hasEnded() && !readChunk())
            lines_.finish();
    } catch (const std::exception&) {
        lines_.fail(std::current_exception());
    }
}

asio::awaitable<void> PipeTransport::inputReady()
{
    if (!readiness_) {
        co_await asio::post(executor_, asio::use_awaitable); // the handlers get their turn between two pieces
        co_return;
    }
    asio::error_code ignored; // cancelled by close()
    co_await readiness_->async_wait(
        asio::posix::stream_descriptor::wait_read, asio::redirect_error(asio::use_awaitable, ignored));
}

/// Reads what is there. False at the end of input. Throws SystemError.
bool PipeTransport::readChunk()
{
    pollfd polled{.fd = reading_.get(), .events = POLLIN, .revents = 0};
    if (readiness_ && ::poll(&polled, 1, 0) == 0) // another process that shares the input was faster
        return true;
    std::array<char, 65536> buffer; // NOLINT(cppcoreguidelines-pro-type-member-init): filled by read
    const ssize_t count = ::read(reading_.get(), buffer.data(), buffer.size());
    if (count < 0 && (errno == EINTR || errno == EAGAIN))
        return true;
    if (count < 0)
        throw SystemError("could not read from the peer");
    if (count == 0)
        return false;
    for (std::string& line : splitter_.add({buffer.data(), static_cast<std::size_t>(count)}))
        lines_.push(std::move(line));
    return true;
}

} // namespace veltry
