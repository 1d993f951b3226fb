#include "Projects/Experiment.h"

#include "Projects/JSONFields.h"

namespace veltry {

JSONValue toJSON(const Experiment& experiment)
{
    JSONFields fields;
    fields.set("id", experiment.id);
    fields.set("projectID", experiment.projectID);
    fields.set("parentID", experiment.parentID);
    fields.set("slug", experiment.slug);
    fields.set("branch", experiment.branch);
    fields.set("title", experiment.title);
    fields.set("notes", experiment.notes);
    fields.set("runCommand", experiment.runCommand);
    fields.set("archived", experiment.archived);
    fields.set("conversationID", experiment.conversationID);
    fields.set("createdAt", experiment.createdAt);
    return fields.take();
}

std::optional<Experiment> experimentFromJSON(const JSONValue& value)
{
    JSONFields fields(value);
    Experiment experiment{
        .id = fields.id("id"),
        .projectID = fields.id("projectID"),
        .parentID = fields.optional("parentID", &JSONFields::id),
        .slug = fields.string("slug"),
        .branch = fields.string("branch"),
        .title = fields.string("title"),
        .notes = fields.string("notes"),
        .runCommand = fields.string("runCommand"),
        .archived = fields.flag("archived"),
        .conversationID = fields.optional("conversationID", &JSONFields::id),
        .createdAt = fields.date("createdAt"),
    };
    return fields.isWhole() ? std::optional(std::move(experiment)) : std::nullopt;
}

} // namespace veltry
