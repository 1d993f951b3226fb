#include "Platform/Async/SharedInput.h"

#include "Platform/SystemError.h"

#include <asio/post.hpp>
#include <asio/redirect_error.hpp>
#include <asio/use_awaitable.hpp>

#include <poll.h>
#include <sys/epoll.h>
#include <unistd.h>

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

SharedInput::SharedInput(const asio::any_io_executor& executor, FileDescriptor file)
    : executor_(executor), file_(std::move(file))
{
    if (FileDescriptor set = readinessOf(file_))
        readiness_.emplace(executor, set.release());
}

asio::awaitable<void> SharedInput::ready()
{
    if (!readiness_) {
        // The handlers get their turn between two pieces.
        co_await asio::post(executor_, asio::use_awaitable);
        co_return;
    }
    asio::error_code ignored; // cancelled
    co_await readiness_->async_wait(
        asio::posix::stream_descriptor::wait_read, asio::redirect_error(asio::use_awaitable, ignored));
}

void SharedInput::cancel() noexcept
{
    asio::error_code ignored;
    if (readiness_)
        readiness_->cancel(ignored);
}

std::optional<std::string_view> SharedInput::read(std::span<char> buffer)
{
    pollfd polled{.fd = file_.get(), .events = POLLIN, .revents = 0};
    if (readiness_ && ::poll(&polled, 1, 0) == 0) // another process that shares the input was faster
        return std::string_view();
    const ssize_t count = ::read(file_.get(), buffer.data(), buffer.size());
    if (count < 0 && (errno == EINTR || errno == EAGAIN))
        return std::string_view();
    if (count < 0)
        throw SystemError("could not read from the peer");
    if (count == 0)
        return std::nullopt;
    return std::string_view(buffer.data(), static_cast<std::size_t>(count));
}

} // namespace veltry
