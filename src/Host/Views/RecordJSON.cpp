#include "Host/Views/RecordJSON.h"

#include "Projects/RecordFields.h"

namespace veltry::RecordJSON {

namespace {

// What a program is shown of a member: the stored form, but dates as texts.

template <typename Value>
const Value& shown(const Value& value)
{
    return value;
}

std::string shown(const Date& date)
{
    return date.iso8601();
}

std::optional<std::string> shown(const std::optional<Date>& date)
{
    return date ? std::optional(date->iso8601()) : std::nullopt;
}

template <typename Record>
JSONValue::Object shownRecord(const Record& record)
{
    JSONValue::Object object;
    records::forEachField<Record>(
        [&](const auto& field) { records::writeMember(object, field.key, shown(record.*field.member)); });
    return object;
}

} // namespace

JSONValue of(const Project& project)
{
    return shownRecord(project);
}

JSONValue of(const Conversation& conversation)
{
    return shownRecord(conversation);
}

JSONValue of(const Experiment& experiment)
{
    return shownRecord(experiment);
}

JSONValue of(const AgentQuestions& round)
{
    return shownRecord(round);
}

JSONValue of(const Citation& citation)
{
    return shownRecord(citation);
}

JSONValue of(const Run& run)
{
    JSONValue::Object object = shownRecord(run);
    if (run.result)
        if (std::optional<JSONValue> document = JSONValue::parseIfValid(*run.result))
            object.insert_or_assign("result", std::move(*document));
    return object;
}

} // namespace veltry::RecordJSON
