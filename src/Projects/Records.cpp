// What records know beyond their fields, and their JSON forms.

#include "Base/Text.h"
#include "Projects/RecordFields.h"

namespace veltry {

bool Answer::isEmpty() const
{
    return chosen.empty() && (!other || text::isBlank(*other));
}

JSONValue toJSON(const Experiment& experiment)
{
    return records::writeRecord(experiment);
}

std::optional<Experiment> experimentFromJSON(const JSONValue& value)
{
    return records::readIfPossible<Experiment>(value);
}

JSONValue toJSON(const Run& run)
{
    return records::writeRecord(run);
}

std::optional<Run> runFromJSON(const JSONValue& value)
{
    return records::readIfPossible<Run>(value);
}

JSONValue toJSON(const Paper& paper)
{
    return records::writeRecord(paper);
}

JSONValue toJSON(const std::vector<Question>& questions)
{
    return records::Codec<std::vector<Question>>::write(questions);
}

JSONValue toJSON(const std::vector<Answer>& answers)
{
    return records::Codec<std::vector<Answer>>::write(answers);
}

} // namespace veltry
