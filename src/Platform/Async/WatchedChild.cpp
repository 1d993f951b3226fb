#include "Platform/Async/WatchedChild.h"

#include "Platform/Async/Mailbox.h"

#include <asio/co_spawn.hpp>
#include <asio/detached.hpp>
#include <asio/posix/stream_descriptor.hpp>
#include <asio/this_coro.hpp>

#include <utility>
#include <vector>

namespace veltry {

namespace {

constexpr std::size_t pieceSize = 65536; // what a pipe holds

asio::awaitable<std::int32_t> statusAfter(FileDescriptor event, ProcessID child)
{
    const asio::any_io_executor executor = co_await asio::this_coro::executor;
    asio::posix::stream_descriptor ended(executor, event.release());
    co_await ended.async_wait(asio::posix::stream_descriptor::wait_read, asio::use_awaitable);
    co_return ChildProcess::wait(child); // which doesn't block any more
}

} // namespace

struct WatchedChild::Watch {
    Watch(const asio::any_io_executor& owner, FileDescriptor reading, Taker taker, std::chrono::milliseconds time)
        : executor(owner), output(owner, reading.release()), take(std::move(taker)), grace(time)
    {
    }

    asio::any_io_executor executor;
    asio::posix::stream_descriptor output;
    Taker take; // empty where the output is ignored
    std::chrono::milliseconds grace;
    ProcessID leader = -1;
    std::optional<std::int32_t> exitNumber;
    bool hasReadAll = false;
    bool ignoresOutput = false;
    std::vector<std::shared_ptr<Mailbox<std::int32_t>>> waiting;
};

std::shared_ptr<WatchedChild> WatchedChild::start(
    const asio::any_io_executor& executor, ChildProcess::Command command,
    ChildProcess::Stream ChildProcess::Command::* watched, Taker take, std::chrono::milliseconds grace)
{
    // Our copy of the writing end goes with this scope; else the end of the output would never come.
    Pipe output = Pipe::make();
    command.*watched = ChildProcess::Stream::to(output.writing.get());
    auto watch = std::make_unique<Watch>(executor, std::move(output.reading), std::move(take), grace);
    const std::shared_ptr<WatchedChild> child(new WatchedChild(std::move(watch)));
    // From here on the child is ended by the destructor, whatever else fails.
    child->watch_->leader = ChildProcess::start(command);
    FileDescriptor event = ChildProcess::exitEvent(child->watch_->leader);
    asio::co_spawn(executor, readOutput(child), asio::detached);
    asio::co_spawn(executor, watchEnd(child, std::move(event)), asio::detached);
    return child;
}

WatchedChild::WatchedChild(std::unique_ptr<Watch> watch) : watch_(std::move(watch)) {}

WatchedChild::~WatchedChild()
{
    // Both tasks hold it, so it gets here with a child that runs only when they were dropped with their executor.
    if (isRunning())
        ChildProcess::endGroup(watch_->leader, watch_->grace);
}

asio::awaitable<void> WatchedChild::readOutput(std::shared_ptr<WatchedChild> self)
{
    Watch& watch = *self->watch_;
    std::vector<char> buffer(pieceSize);
    while (true) {
        asio::error_code failure; // the end is one
        const std::size_t count = co_await watch.output.async_read_some(
            asio::buffer(buffer), asio::redirect_error(asio::use_awaitable, failure));
        if (failure)
            break;
        if (watch.take)
            watch.take({buffer.data(), count});
    }
    watch.hasReadAll = true;
    watch.take = nullptr; // it may hold whoever holds us
}

asio::awaitable<void> WatchedChild::watchEnd(std::shared_ptr<WatchedChild> self, FileDescriptor event)
{
    Watch& watch = *self->watch_;
    const std::int32_t number = co_await statusAfter(std::move(event), watch.leader);
    watch.exitNumber = number;
    // Emptied first: who hears of the end may come back and ask.
    for (const auto& waiter : std::exchange(watch.waiting, {}))
        waiter->push(number);
    self->closeOutputIfDone();
}

std::optional<std::int32_t> WatchedChild::exitNumber() const noexcept
{
    return watch_->exitNumber;
}

asio::awaitable<std::int32_t> WatchedChild::exit(std::shared_ptr<WatchedChild> self)
{
    Watch& watch = *self->watch_;
    if (watch.exitNumber)
        co_return *watch.exitNumber;
    // A mailbox for each that waits, since what is pushed goes to one taker.
    const auto waiter = std::make_shared<Mailbox<std::int32_t>>(watch.executor);
    watch.waiting.push_back(waiter);
    const std::optional<std::int32_t> number = co_await waiter->next();
    co_return number.value();
}

bool WatchedChild::hasReadAll() const noexcept
{
    return watch_->hasReadAll;
}

void WatchedChild::ignoreOutput() noexcept
{
    watch_->take = nullptr;
    watch_->ignoresOutput = true;
    closeOutputIfDone();
}

void WatchedChild::terminate() noexcept
{
    // Once its status was taken, the id may be another process's.
    if (isRunning())
        ChildProcess::terminateGroup(watch_->leader);
}

void WatchedChild::kill() noexcept
{
    if (isRunning())
        ChildProcess::killGroup(watch_->leader);
}

bool WatchedChild::isRunning() const noexcept
{
    return watch_->leader > 0 && !watch_->exitNumber;
}

void WatchedChild::closeOutputIfDone() noexcept
{
    asio::error_code ignored;
    // Not earlier: a child that writes into a pipe without a reader is ended by SIGPIPE.
    if (watch_->ignoresOutput && !isRunning())
        watch_->output.close(ignored);
}

asio::awaitable<std::int32_t> reaped(ProcessID child)
{
    FileDescriptor event = ChildProcess::exitEvent(child);
    co_return co_await statusAfter(std::move(event), child);
}

} // namespace veltry
