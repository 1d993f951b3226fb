#pragma once

#include "ACP/ACPClient/Harness.h"
#include "Host/Context.h"

#include <asio/awaitable.hpp>

#include <vector>

namespace veltry::PastSessions {

/// What the agent remembers of the project's folder, the latest first, without what the project's conversations hold
/// already. Starts the agent and ends it again. Throws Refusal where the agent can't tell, and what its start meets.
[[nodiscard]] asio::awaitable<std::vector<PastConversation>> found(Context& context, Harness harness);

} // namespace veltry::PastSessions
