#include "ACP/JSONRPCConnection/MemoryTransport.h"

#include "ACP/JSONRPCConnection/ConnectionError.h"

namespace veltry {

MemoryTransport::Pair MemoryTransport::pair(const asio::any_io_executor& executor)
{
    Pair ends{std::make_shared<MemoryTransport>(executor), std::make_shared<MemoryTransport>(executor)};
    ends.first->peerLines_ = ends.second->lines_;
    ends.second->peerLines_ = ends.first->lines_;
    return ends;
}

MemoryTransport::MemoryTransport(const asio::any_io_executor& executor) : lines_(std::make_shared<LineStream>(executor))
{
}

asio::awaitable<void> MemoryTransport::send(std::string line)
{
    if (!peerLines_)
        throw ConnectionError::closed();
    peerLines_->push(std::move(line));
    co_return;
}

asio::awaitable<void> MemoryTransport::close()
{
    if (peerLines_)
        peerLines_->finish();
    lines_->finish();
    co_return;
}

} // namespace veltry
