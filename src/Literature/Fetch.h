#pragma once

#include "Platform/HTTPSession.h"

#include <asio/awaitable.hpp>

#include <memory>

namespace veltry {

/// Carries out one request of the session and waits for it on the caller's executor, which others may use meanwhile.
[[nodiscard]] asio::awaitable<HTTPSession::Outcome> fetch(
    std::shared_ptr<HTTPSession> session, HTTPSession::Request request);

} // namespace veltry
