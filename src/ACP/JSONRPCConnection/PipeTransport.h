#pragma once

#include "ACP/JSONRPCConnection/LineSplitter.h"
#include "ACP/JSONRPCConnection/LineTransport.h"
#include "ACP/JSONRPCConnection/LineWriter.h"
#include "Platform/Async/SharedInput.h"
#include "Platform/FileDescriptor.h"

#include <memory>

namespace veltry {

/// A transport over two descriptors: pipes, sockets, terminals or plain files.
///
/// Their flags stay as they are, since they may be shared with other processes. Input is read on the transport's
/// executor when lines are asked for. A last line without a line feed is dropped. A line that fits a pipe goes out at
/// once; a peer that reads slowly is served by a thread and holds up nobody. The process ignores SIGPIPE, so that a
/// peer that went away shows as a failed send().
class PipeTransport final : public LineTransport {
public:
    /// Throws SystemError.
    [[nodiscard]] static std::shared_ptr<PipeTransport> make(
        const asio::any_io_executor& executor, FileDescriptor reading, FileDescriptor writing);

    [[nodiscard]] asio::awaitable<void> send(std::string line) override;
    [[nodiscard]] bool sendIfPossible(std::string& line) override;

    [[nodiscard]] LineStream& lines() override { return lines_; }

    /// The reading descriptor stays open until the transport goes.
    [[nodiscard]] asio::awaitable<void> close() override;
    /// The same without a suspension, for a destructor.
    void closeNow() noexcept;

private:
    PipeTransport(const asio::any_io_executor& executor, FileDescriptor reading, FileDescriptor writing);

    [[nodiscard]] asio::awaitable<void> readMore();
    [[nodiscard]] bool readChunk();

    asio::any_io_executor executor_;
    SharedInput input_;
    LineSplitter splitter_;
    LineStream lines_;
    LineWriter writer_;
};

} // namespace veltry
