#pragma once

#include "ACP/JSONRPCConnection/LineTransport.h"

#include <memory>
#include <utility>

namespace veltry {

/// A transport inside one process: what one end sends, the other receives. Both ends live on one executor.
class MemoryTransport final : public LineTransport {
public:
    using Pair = std::pair<std::shared_ptr<MemoryTransport>, std::shared_ptr<MemoryTransport>>;
    [[nodiscard]] static Pair pair(const asio::any_io_executor& executor);

    /// An end without a peer: send() throws ConnectionError::closed().
    explicit MemoryTransport(const asio::any_io_executor& executor);

    /// Once either end has been closed it delivers nothing and reports success.
    [[nodiscard]] asio::awaitable<void> send(std::string line) override;
    [[nodiscard]] LineStream& lines() override { return *lines_; }
    /// Ends the lines of both ends.
    [[nodiscard]] asio::awaitable<void> close() override;

private:
    std::shared_ptr<LineStream> lines_;
    std::shared_ptr<LineStream> peerLines_;
};

} // namespace veltry
