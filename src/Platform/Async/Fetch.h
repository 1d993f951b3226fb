#pragma once

#include "Platform/HTTPSession.h"

#include <asio/any_io_executor.hpp>
#include <asio/awaitable.hpp>

#include <memory>

namespace veltry {

/// Carries out one request of the session and waits for it on `executor`, which is the caller's own
/// (this_coro::executor) and serves others meanwhile.
[[nodiscard]] asio::awaitable<HTTPSession::Outcome> fetch(
    asio::any_io_executor executor, std::shared_ptr<HTTPSession> session, HTTPSession::Request request);

} // namespace veltry
