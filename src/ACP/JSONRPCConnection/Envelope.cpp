#include "ACP/JSONRPCConnection/Envelope.h"

namespace veltry {

// Member by member, since a result may be a text of megabytes. Keys are sorted, as everywhere.
std::string Envelope::line() const
{
    std::string line = "{";
    const auto add = [&line](std::string_view key, const JSONValue& value) {
        line.append(line.size() > 1 ? ",\"" : "\"").append(key).append("\":").append(value.text());
    };
    if (error)
        add("error", error->toJSON());
    if (id)
        add("id", *id);
    add("jsonrpc", "2.0");
    if (method)
        add("method", *method);
    if (params)
        add("params", *params);
    if (result)
        add("result", *result);
    return line += '}';
}

std::optional<Envelope> Envelope::parse(std::string_view line)
{
    std::optional<JSONValue> value = JSONValue::parseIfValid(line);
    JSONValue::Object* message = value ? value->object() : nullptr;
    if (!message)
        return std::nullopt;
    Envelope envelope;
    bool isVersioned = false;
    for (auto& [key, member] : *message) {
        if (member.isNull())
            continue; // counts as absent
        if (key == "id") {
            envelope.id = std::move(member);
        } else if (key == "params") {
            envelope.params = std::move(member);
        } else if (key == "result") {
            envelope.result = std::move(member);
        } else if (key == "error") {
            envelope.error = JSONRPCError::fromJSON(member);
            if (!envelope.error)
                return std::nullopt;
        } else if (key == "method") {
            if (!member.string())
                return std::nullopt;
            envelope.method = std::move(*member.string());
        } else if (key == "jsonrpc") {
            isVersioned = member.string() != nullptr;
        }
    }
    return isVersioned ? std::optional(std::move(envelope)) : std::nullopt;
}

} // namespace veltry
