#pragma once

#include "Base/Error.h"
#include "Base/JSONValue.h"

#include <cstdint>
#include <optional>
#include <string>

namespace veltry {

/// What a peer answers in place of a result (JSON-RPC 2.0, "Error object"), and what a handler throws to answer so.
struct JSONRPCError : Error {
    JSONRPCError(std::int64_t errorCode, std::string text, std::optional<JSONValue> details = std::nullopt)
        : code(errorCode), message(std::move(text)), data(std::move(details))
    {
    }

    [[nodiscard]] static JSONRPCError methodNotFound(const std::string& method);
    [[nodiscard]] static JSONRPCError invalidParams(std::string message);
    /// A failure of ours that the request isn't to blame for.
    [[nodiscard]] static JSONRPCError internal(std::string message);

    static constexpr std::int64_t authRequiredCode = -32000;
    [[nodiscard]] bool isAuthRequired() const noexcept { return code == authRequiredCode; }

    /// "<message> (<code>)".
    [[nodiscard]] std::string description() const override;

    [[nodiscard]] JSONValue toJSON() const;
    /// Nothing unless it is an object with a whole number as "code" and a text as "message".
    [[nodiscard]] static std::optional<JSONRPCError> fromJSON(const JSONValue& value);

    std::int64_t code;
    std::string message;
    std::optional<JSONValue> data;
};

} // namespace veltry
