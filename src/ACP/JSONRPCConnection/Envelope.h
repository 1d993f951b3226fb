#pragma once

#include "ACP/JSONRPCConnection/JSONRPCError.h"
#include "Base/JSONValue.h"

#include <optional>
#include <string>
#include <string_view>

namespace veltry {

/// One JSON-RPC 2.0 message of any kind: a request has a method and an id, a notification a method alone, an answer an
/// id with a result or an error. A key that holds null reads as absent.
struct Envelope {
    std::optional<JSONValue> id;
    std::optional<std::string> method;
    std::optional<JSONValue> params;
    std::optional<JSONValue> result;
    std::optional<JSONRPCError> error;

    /// The message on one line, without its line feed. Throws JSONValue::Failure for what JSON has no form for.
    [[nodiscard]] std::string line() const;

    /// Nothing if the line isn't one JSON object with a text as "jsonrpc" and each field of its type.
    [[nodiscard]] static std::optional<Envelope> parse(std::string_view line);
};

} // namespace veltry
