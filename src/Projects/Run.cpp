#include "Projects/Run.h"

#include "Projects/JSONFields.h"

#include <array>
#include <limits>

namespace veltry {

namespace {

/// In the order of Run::Status.
constexpr std::array<std::string_view, 5> statusTexts = {"queued", "running", "succeeded", "failed", "cancelled"};
static_assert(statusTexts.size() == static_cast<std::size_t>(Run::Status::cancelled) + 1);

std::optional<std::int32_t> optionalInt32(JSONFields& fields, std::string_view key)
{
    const std::optional<std::int64_t> number = fields.optional(key, &JSONFields::integer);
    if (!number)
        return std::nullopt;
    if (*number < std::numeric_limits<std::int32_t>::min() || *number > std::numeric_limits<std::int32_t>::max())
        fields.refuse();
    return static_cast<std::int32_t>(*number);
}

} // namespace

std::string_view Run::statusText(Status status)
{
    return statusTexts[static_cast<std::size_t>(status)];
}

std::optional<Run::Status> Run::parseStatus(std::string_view text)
{
    for (std::size_t index = 0; index < statusTexts.size(); ++index)
        if (statusTexts[index] == text)
            return static_cast<Status>(index);
    return std::nullopt;
}

JSONValue toJSON(const Run& run)
{
    JSONFields fields;
    fields.set("id", run.id);
    fields.set("experimentID", run.experimentID);
    fields.set("projectID", run.projectID);
    fields.set("number", run.number);
    fields.set("status", Run::statusText(run.status));
    fields.set("commit", run.commit);
    fields.set("command", run.command);
    fields.set("directory", run.directory.native());
    fields.set("pid", run.pid);
    fields.set("exitCode", run.exitCode);
    fields.set("result", run.result);
    fields.set("cancelRequested", run.cancelRequested);
    fields.set("createdAt", run.createdAt);
    fields.set("endedAt", run.endedAt);
    return fields.take();
}

std::optional<Run> runFromJSON(const JSONValue& value)
{
    JSONFields fields(value);
    const std::optional<Run::Status> status = Run::parseStatus(fields.string("status"));
    Run run{
        .id = fields.id("id"),
        .experimentID = fields.id("experimentID"),
        .projectID = fields.id("projectID"),
        .number = fields.integer("number"),
        .status = status.value_or(Run::Status::queued),
        .commit = fields.string("commit"),
        .command = fields.string("command"),
        .directory = fields.string("directory"),
        .pid = optionalInt32(fields, "pid"),
        .exitCode = optionalInt32(fields, "exitCode"),
        .result = fields.optional("result", &JSONFields::string),
        .cancelRequested = fields.flag("cancelRequested"),
        .createdAt = fields.date("createdAt"),
        .endedAt = fields.optional("endedAt", &JSONFields::date),
    };
    return status && fields.isWhole() ? std::optional(std::move(run)) : std::nullopt;
}

} // namespace veltry
