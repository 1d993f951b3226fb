#include "ACP/JSONRPCConnection/PipeTransport.h"

#include <asio/post.hpp>

#include <array>

namespace veltry {

std::shared_ptr<PipeTransport> PipeTransport::make(
    const asio::any_io_executor& executor, FileDescriptor reading, FileDescriptor writing)
{
    return std::shared_ptr<PipeTransport>(new PipeTransport(executor, std::move(reading), std::move(writing)));
}

PipeTransport::PipeTransport(const asio::any_io_executor& executor, FileDescriptor reading, FileDescriptor writing)
    : executor_(executor), input_(executor, std::move(reading)), lines_(executor, [this] { return readMore(); }),
      writer_(std::move(writing))
{
}

asio::awaitable<void> PipeTransport::send(std::string line)
{
    line += '\n';
    if (writer_.writeIfPossible(line))
        co_return;
    const auto written = std::make_shared<Mailbox<std::exception_ptr>>(executor_);
    // Called on the writer's thread; a mailbox belongs to the executor, so the word is posted there.
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
    // Without the end again: a line that wasn't taken is queued and gets it in send().
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
    input_.cancel(); // lets readMore() see it
    writer_.stop();
}

/// Waits for input and takes what is there.
asio::awaitable<void> PipeTransport::readMore()
{
    try {
        co_await input_.ready();
        // close() may have come during the wait. Bytes that are read then would be lost to whoever reads next.
        if (!lines_.hasEnded() && !readChunk())
            lines_.finish();
    } catch (const std::exception&) {
        lines_.fail(std::current_exception());
    }
}

/// Reads what is there. False at the end of input. Throws SystemError.
bool PipeTransport::readChunk()
{
    std::array<char, 65536> buffer; // NOLINT(cppcoreguidelines-pro-type-member-init): filled by read
    const std::optional<std::string_view> bytes = input_.read(buffer);
    if (!bytes)
        return false;
    for (std::string& line : splitter_.add(*bytes))
        lines_.push(std::move(line));
    return true;
}

} // namespace veltry
