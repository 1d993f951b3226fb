#include "Host/Agent/Transcript.h"

#include "ACP/ACPClient/WireRecord.h"
#include "Base/UUID.h"

#include <utility>

namespace veltry {

namespace {

std::string itemText(const std::string& id, const std::string& kind, JSONValue payload)
{
    JSONValue::Object body;
    body.emplace("_0", std::move(payload));
    JSONValue::Object kinds;
    kinds.emplace(kind, std::move(body));
    return JSONValue::object({{"id", id}, {"kind", std::move(kinds)}}).text();
}

} // namespace

Transcript::Transcript(std::string_view stored)
{
    const JSONValue document = JSONValue::parse(stored);
    if (!document.array())
        throw JSONValue::Failure("the stored transcript is no JSON array");
    for (const JSONValue& item : *document.array())
        items_.push_back(item.text());
}

void Transcript::userSaid(std::string text)
{
    closeMessage();
    items_.push_back(itemText(UUID::random().text(), "user", std::move(text)));
    isChanged_ = true;
}

void Transcript::endTurn()
{
    closeMessage();
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
        addCall({change->toolCallId, change->title, change->kind, change->status, std::nullopt, std::nullopt});
}

std::string Transcript::textOf(const ContentBlock& block)
{
    if (const auto* text = std::get_if<ContentBlock::Text>(&block.value))
        return text->text;
    if (const auto* link = std::get_if<ContentBlock::ResourceLink>(&block.value))
        return link->name + " <" + link->uri + ">";
    return "[" + std::get<ContentBlock::Other>(block.value).type + "]";
}

std::string Transcript::text() const
{
    std::size_t size = 2 + items_.size();
    for (const std::string& item : items_)
        size += item.size();
    std::string text;
    // Text grows by its escapes when it is written; an eighth is room enough for most.
    text.reserve(size + (open_ ? open_->text.size() + open_->text.size() / 8 : 0));
    text += '[';
    const auto add = [&text](const std::string& item) {
        if (text.size() > 1)
            text += ',';
        text += item;
    };
    for (const std::string& item : items_)
        add(item);
    if (open_)
        add(open_->item());
    return text += ']';
}

std::string Transcript::OpenMessage::item() const
{
    return itemText(id, kind, text);
}

void Transcript::closeMessage()
{
    if (open_)
        items_.push_back(std::exchange(open_, std::nullopt)->item());
}

void Transcript::addChunk(const char* kind, const ContentChunk& chunk)
{
    // Agents that name their messages may send two of a kind one after the other.
    if (!open_ || open_->kind != kind || open_->messageID != chunk.messageId) {
        closeMessage();
        open_ = OpenMessage{.id = UUID::random().text(), .kind = kind, .messageID = chunk.messageId, .text = {}};
    }
    open_->text += textOf(chunk.content);
    isChanged_ = true;
}

/// Keeps nothing of the call that may be whole files.
void Transcript::addCall(const ToolCallUpdate& call)
{
    closeMessage();
    const auto [place, isNew] = calls_.try_emplace(call.toolCallId);
    Call& kept = place->second;
    if (isNew) {
        kept.id = UUID::random().text();
        // Later updates replace the item where the call began, so that the order stays that of the conversation.
        kept.place = items_.size();
        items_.emplace_back();
    }
    JSONValue changed = encoded(call);
    for (auto& [key, value] : *changed.object())
        kept.known.insert_or_assign(key, std::move(value));
    items_[kept.place] = itemText(kept.id, "tool", kept.known);
    isChanged_ = true;
}

} // namespace veltry
