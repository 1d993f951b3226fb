#include "Host/Views/RecordJSON.h"

#include "Projects/JSONFields.h"

namespace veltry::RecordJSON {

namespace {

JSONValue text(Date date)
{
    return date.iso8601();
}

/// The stored form with its dates, seconds there, as texts.
JSONValue withDates(JSONValue record, std::initializer_list<const char*> dates)
{
    for (const char* key : dates)
        if (const auto found = record.object()->find(key); found != record.object()->end())
            found->second = text(Date{*found->second.number()});
    return record;
}

} // namespace

JSONValue of(const Project& project)
{
    JSONValue::Array folders;
    for (const std::filesystem::path& folder : project.folders)
        folders.push_back(folder.string());
    JSONFields fields;
    fields.set("id", project.id);
    fields.set("name", project.name);
    fields.set("folders", std::move(folders));
    fields.set("createdAt", text(project.createdAt));
    fields.set("importDismissed", project.importDismissed);
    fields.set("collapsed", project.collapsed);
    return fields.take();
}

JSONValue of(const Conversation& conversation)
{
    JSONFields fields;
    fields.set("id", conversation.id);
    fields.set("projectID", conversation.projectID);
    fields.set("title", conversation.title);
    fields.set("harness", conversation.harness);
    fields.set("createdAt", text(conversation.createdAt));
    fields.set("agentSessionID", conversation.agentSessionID);
    if (conversation.archivedAt)
        fields.set("archivedAt", text(*conversation.archivedAt));
    return fields.take();
}

JSONValue of(const Experiment& experiment)
{
    return withDates(toJSON(experiment), {"createdAt"});
}

JSONValue of(const AgentQuestions& round)
{
    JSONFields fields;
    fields.set("id", round.id);
    fields.set("conversationID", round.conversationID);
    fields.set("questions", listToJSON(round.questions));
    if (round.answers)
        fields.set("answers", listToJSON(*round.answers));
    fields.set("status", JSONValue(AgentQuestions::statusText(round.status)));
    fields.set("askedAt", text(round.askedAt));
    return fields.take();
}

JSONValue of(const Citation& citation)
{
    JSONFields fields;
    fields.set("experimentID", citation.experimentID);
    fields.set("paper", toJSON(citation.paper));
    fields.set("reason", citation.reason);
    fields.set("createdAt", text(citation.createdAt));
    return fields.take();
}

JSONValue of(const Run& run)
{
    JSONValue record = withDates(toJSON(run), {"createdAt", "endedAt"});
    if (run.result)
        if (std::optional<JSONValue> document = JSONValue::parseIfValid(*run.result))
            record.object()->insert_or_assign("result", std::move(*document));
    return record;
}

} // namespace veltry::RecordJSON
