#include "ACP/JSONRPCConnection/Envelope.h"

namespace veltry {

namespace {

/// Takes a member out of the message; a null counts as absent.
std::optional<JSONValue> take(JSONValue::Object& message, std::string_view key)
{
    const auto found = message.find(key);
    if (found == message.end() || found->second.isNull())
        return std::nullopt;
    return std::move(found->second);
}

} // namespace

std::string Envelope::line() const
{
    JSONValue::Object message{{"jsonrpc", "2.0"}};
    if (id)
        message.emplace("id", *id);
    if (method)
        message.emplace("method", *method);
    if (params)
        message.emplace("params", *params);
    if (result)
        message.emplace("result", *result);
    if (error)
        message.emplace("error", error->toJSON());
    return JSONValue(std::move(message)).text();
}

std::optional<Envelope> Envelope::parse(std::string_view line)
{
    std::optional<JSONValue> value = JSONValue::parseIfValid(line);
    JSONValue::Object* message = value ? value->object() : nullptr;
    if (!message)
        return std::nullopt;
    const std::optional<JSONValue> version = take(*message, "jsonrpc");
    if (!version || !version->string())
        return std::nullopt;

    Envelope envelope;
    if (std::optional<JSONValue> method = take(*message, "method")) {
        if (!method->string())
            return std::nullopt;
        envelope.method = std::move(*method->string());
    }
    if (const std::optional<JSONValue> error = take(*message, "error")) {
        envelope.error = JSONRPCError::fromJSON(*error);
        if (!envelope.error)
            return std::nullopt;
    }
    envelope.id = take(*message, "id");
    envelope.params = take(*message, "params");
    envelope.result = take(*message, "result");
    return envelope;
}

} // namespace veltry
