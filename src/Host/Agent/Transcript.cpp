#include "Host/Agent/Transcript.h"

#include "ACP/ACPClient/WireRecord.h"
#include "Base/UUID.h"

namespace veltry {

namespace {

/// What an item of that kind holds, as append() has made it.
JSONValue& payloadOf(JSONValue& item, const std::string& kind)
{
    JSONValue::Object& kinds = *item.object()->at("kind").object();
    return kinds.at(kind).object()->at("_0");
}

} // namespace

Transcript::Transcript(std::string_view stored)
{
    JSONValue document = JSONValue::parse(stored);
    if (!document.array())
        throw JSONValue::Failure("the stored transcript is no JSON array");
    items_ = std::move(*document.array());
}

void Transcript::userSaid(std::string text)
{
    append("user", std::move(text));
    open_.reset();
}

void Transcript::endTurn()
{
    open_.reset();
    calls_.clear();
}

void Transcript::add(const SessionUpdate& update)
{
    if (const auto* said = std::get_if<SessionUpdate::AgentMessageChunk>(&update.value))
        addChunk("agent", *said);
    else if (const auto* thought = std::get_if<SessionUpdate::AgentThoughtChunk>(&update.value))
        addChunk("thought", *thought);
    else if (const auto* asked = std::get_if<SessionUpdate::UserMessageChunk>(&update.value))
        addChunk("user", *asked); // of a session's history
    else if (const auto* call = std::get_if<ToolCall>(&update.value))
        addCall({call->toolCallId, call->title, call->kind, call->status, std::nullopt, std::nullopt});
    else if (const auto* change = std::get_if<ToolCallUpdate>(&update.value))
        addCall(*change);
}

std::string Transcript::textOf(const ContentBlock& block)
{
    if (const auto* text = std::get_if<ContentBlock::Text>(&block.value))
        return text->text;
    if (const auto* link = std::get_if<ContentBlock::ResourceLink>(&block.value))
        return link->name + " <" + link->uri + ">";
    return "[" + std::get<ContentBlock::Other>(block.value).type + "]";
}

void Transcript::addChunk(const char* kind, const ContentChunk& chunk)
{
    const bool goesOn = open_ && open_->kind == kind && open_->messageID == chunk.messageId;
    if (!goesOn) {
        append(kind, std::string());
        open_ = OpenMessage{.kind = kind, .messageID = chunk.messageId};
    }
    payloadOf(items_.back(), kind).string()->append(textOf(chunk.content));
}

void Transcript::addCall(const ToolCallUpdate& call)
{
    open_.reset();
    const auto known = calls_.find(call.toolCallId);
    JSONValue::Object changed = *encoded(call).object();
    changed.erase("content"); // may be whole files
    changed.erase("locations");
    if (known == calls_.end()) {
        calls_[call.toolCallId] = items_.size();
        append("tool", std::move(changed));
        return;
    }
    JSONValue::Object& payload = *payloadOf(items_[known->second], "tool").object();
    for (auto& [key, value] : changed)
        payload.insert_or_assign(key, std::move(value));
}

void Transcript::append(const char* kind, JSONValue payload)
{
    JSONValue body = JSONValue::object({{"_0", std::move(payload)}});
    JSONValue::Object kinds;
    kinds.emplace(kind, std::move(body));
    items_.emplace_back(JSONValue::object({{"id", UUID::random().text()}, {"kind", std::move(kinds)}}));
}

} // namespace veltry
