#include "ACP/JSONRPCConnection/JSONRPCError.h"

#include <fmt/format.h>

namespace veltry {

JSONRPCError JSONRPCError::methodNotFound(const std::string& method)
{
    return {-32601, "method not found: " + method};
}

JSONRPCError JSONRPCError::invalidParams(std::string message)
{
    return {-32602, std::move(message)};
}

JSONRPCError JSONRPCError::internal(std::string message)
{
    return {-32603, std::move(message)};
}

std::string JSONRPCError::description() const
{
    return fmt::format("{} ({})", message, code);
}

JSONValue JSONRPCError::toJSON() const
{
    JSONValue::Object members{{"code", code}, {"message", message}};
    if (data)
        members.emplace("data", *data);
    return members;
}

std::optional<JSONRPCError> JSONRPCError::fromJSON(const JSONValue& value)
{
    const JSONValue* code = value.find("code");
    const JSONValue* message = value.find("message");
    const JSONValue* data = value.find("data");
    const std::optional<std::int64_t> number = code ? code->integer() : std::nullopt;
    if (!number || static_cast<double>(*number) != *code->number() || !message || !message->string())
        return std::nullopt;
    return JSONRPCError(
        *number, *message->string(), data && !data->isNull() ? std::optional(*data) : std::optional<JSONValue>());
}

} // namespace veltry
