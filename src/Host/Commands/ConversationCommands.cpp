#include "Base/Text.h"
#include "Host/Commands/Commands.h"
#include "Host/Context.h"
#include "Host/Terminal/TextTable.h"
#include "Host/Terminal/Times.h"
#include "Host/Views/RecordJSON.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <map>

namespace veltry::Commands {

namespace {

using Count = Option::Count;
using Completion = Option::Completion;

void list(Context& context, const Arguments& arguments)
{
    std::vector<Conversation> all = context.store()->conversations(context.project().id);
    if (!arguments.has("--archived"))
        std::erase_if(all, [](const Conversation& each) { return each.archivedAt.has_value(); });
    if (context.json()) {
        JSONValue::Array documents;
        for (const Conversation& conversation : all)
            documents.push_back(RecordJSON::of(conversation));
        return context.printJSON(JSONValue(std::move(documents)));
    }
    TextTable table(
        {{.heading = "conversation", .mayBeCut = true},
         {.heading = "agent"},
         {.heading = "since"},
         {.heading = ""},
         {.heading = "id"}});
    for (const Conversation& conversation : all)
        table.add({
            {conversation.title, Style::bold},
            {conversation.harness},
            {Times::ago(conversation.createdAt)},
            {conversation.archivedAt ? "archived" : "", Style::dim},
            {conversation.id.text(), Style::dim},
        });
    if (table.isEmpty())
        return context.note("The project has no conversation; --archived shows archived ones too.");
    context.print(table.text(context.out()));
}

/// The member of an item's kind, {"user": {"_0": TEXT}}, that holds what was said.
void addItem(std::string& text, const JSONValue& item, const Terminal& terminal)
{
    const JSONValue* const kind = item.find("kind");
    if (!kind || !kind->object() || kind->object()->empty())
        return;
    const auto& [word, holder] = *kind->object()->begin();
    const JSONValue* const held = holder.find("_0");
    if (!held)
        return;
    if (const JSONValue* const title = held->find("title"); word == "tool" && title && title->string()) {
        const JSONValue* const status = held->find("status");
        text += terminal.styled(
                    Style::dim, fmt::format(
                                    "  [{}] {}", status && status->string() ? text::oneLine(*status->string()) : "",
                                    text::oneLine(*title->string()))) +
                "\n\n";
    } else if (held->string()) {
        text += terminal.styled(word == "thought" ? Style::dim : Style::bold, text::oneLine(word)) + "\n";
        for (const std::string_view line : text::split(text::trimmed(*held->string()), '\n'))
            text += "  " + text::oneLine(line) + "\n";
        text += "\n";
    }
}

void show(Context& context, const Arguments& arguments)
{
    const Conversation conversation = context.conversation(arguments.required("CONVERSATION"));
    const std::optional<std::string> stored = context.store()->transcript(conversation.id);
    std::optional<JSONValue> items = JSONValue::parseIfValid(stored.value_or("[]"));
    if (!items || !items->array())
        throw Refusal(fmt::format("What was said in {} can't be read.", text::oneLine(conversation.title)));
    if (context.json()) {
        JSONValue document = RecordJSON::of(conversation);
        document.object()->emplace("items", std::move(*items));
        return context.printJSON(document);
    }
    if (items->array()->empty())
        return context.note(fmt::format("Nothing was said in {} yet.", text::oneLine(conversation.title)));
    std::string text;
    for (const JSONValue& item : *items->array())
        addItem(text, item, context.out());
    context.print(text);
}

void rename(Context& context, const Arguments& arguments)
{
    const Conversation conversation = context.conversation(arguments.required("CONVERSATION"));
    const std::string given = arguments.required("TITLE");
    const std::string_view title = text::trimmed(given);
    if (title.empty())
        throw UsageError("The new title is blank.");
    context.store()->retitleConversation(conversation.id, title);
    context.note(fmt::format("{} is now called {}.", text::oneLine(conversation.title), text::oneLine(title)));
}

void setArchived(Context& context, const Arguments& arguments, bool archived)
{
    const Conversation conversation = context.conversation(arguments.required("CONVERSATION"));
    if (conversation.archivedAt.has_value() == archived)
        return context.note(fmt::format(
            "{} {}.", text::oneLine(conversation.title), archived ? "is archived already" : "isn't archived"));
    context.store()->setConversationArchived(conversation.id, archived);
    context.note(fmt::format(
        "{} is {}.", text::oneLine(conversation.title), archived ? "archived; nothing of it is lost" : "back"));
}

void archive(Context& context, const Arguments& arguments)
{
    setArchived(context, arguments, true);
}

void restore(Context& context, const Arguments& arguments)
{
    setArchived(context, arguments, false);
}

/// The text on one line, beginning a little before the first of the terms; all of it where the output is no terminal.
std::string excerpt(const std::string& said, std::span<const std::string> terms, const Terminal& terminal)
{
    constexpr std::size_t before = 24; // bytes
    std::string line = text::oneLine(text::trimmed(said));
    const std::string lower = text::lowercased(line);
    std::size_t found = lower.size();
    for (const std::string& term : terms)
        found = std::min(found, lower.find(text::lowercased(term)));
    if (!terminal.isTerminal() || found <= before || lower.size() != line.size() || found == lower.size())
        return line;
    const std::size_t blank = line.find(' ', found - before); // not within a word, nor within a character
    return (terminal.isUTF8() ? "… " : "... ") + line.substr(std::min(blank, found - 1) + 1);
}

void said(Context& context, const Arguments& arguments)
{
    std::vector<std::string> terms;
    for (const std::string& words : arguments.all("WORDS"))
        for (const std::string_view word : text::split(words, ' '))
            if (!text::isBlank(word))
                terms.emplace_back(word);
    std::map<UUID, Conversation> known;
    const auto add = [&](const Project& project) {
        for (Conversation& conversation : context.store()->conversations(project.id))
            known.emplace(conversation.id, std::move(conversation));
    };
    if (arguments.has("--all"))
        std::ranges::for_each(context.store()->projects(), add);
    else
        add(context.project());
    std::vector<SaidMatch> matches = context.store()->said(terms);
    std::erase_if(matches, [&](const SaidMatch& match) { return !known.contains(match.conversationID); });
    std::ranges::sort(
        matches, std::greater(), [&](const SaidMatch& match) { return known.at(match.conversationID).createdAt; });
    JSONValue::Array documents;
    TextTable table({{.heading = "conversation"}, {.heading = "since"}, {.heading = "said", .mayBeCut = true}});
    for (const SaidMatch& match : matches) {
        const Conversation& conversation = known.at(match.conversationID);
        documents.push_back(JSONValue::object(
            {{"conversationID", match.conversationID.text()}, {"itemID", match.itemID}, {"text", match.text}}));
        table.add({
            {conversation.title, Style::bold},
            {Times::ago(conversation.createdAt)},
            {excerpt(match.text, terms, context.out())},
        });
    }
    if (context.json())
        return context.printJSON(JSONValue(std::move(documents)));
    if (matches.empty())
        return context.note("No conversation contains these words.");
    context.print(table.text(context.out()));
}

constexpr Option conversationOption = {
    "CONVERSATION", "", "Its title, or its id or the start of one", Count::required, Completion::conversation};
constexpr std::array listOptions = {Option{"--archived", "", "Archived ones too"}};
constexpr std::array renameOptions = {conversationOption, Option{"TITLE", "", "The new title", Count::required}};
constexpr std::array oneOption = {conversationOption};
constexpr std::array saidOptions = {
    Option{"WORDS", "", "Words or their beginnings, all of which occur in one thing that was said", Count::oneOrMore},
    Option{"--all", "", "In all projects"},
};

constexpr std::array table = {
    Command{
        .name = "conversations",
        .summary = "List the conversations with agents",
        .example = "veltry conversations",
        .hasJSON = true,
        .options = listOptions,
        .run = &list},
    Command{
        .name = "conversations show",
        .summary = "Print what was said in a conversation",
        .example = "veltry conversations show \"Learning rates\"",
        .hasJSON = true,
        .options = oneOption,
        .run = &show},
    Command{
        .name = "conversations rename",
        .summary = "Give a conversation another title",
        .example = "veltry conversations rename \"New chat\" \"Learning rates\"",
        .options = renameOptions,
        .run = &rename},
    Command{
        .name = "conversations archive",
        .summary = "Take a conversation out of the lists",
        .example = "veltry conversations archive \"Learning rates\"",
        .options = oneOption,
        .run = &archive},
    Command{
        .name = "conversations restore",
        .summary = "Bring an archived conversation back",
        .example = "veltry conversations restore \"Learning rates\"",
        .options = oneOption,
        .run = &restore},
    Command{
        .name = "said",
        .summary = "Find conversations by words that were said in them",
        .example = "veltry said warm-up schedule",
        .hasJSON = true,
        .options = saidOptions,
        .run = &said},
};

} // namespace

Family conversationCommands()
{
    return table;
}

} // namespace veltry::Commands
