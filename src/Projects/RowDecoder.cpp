#include "Projects/RowDecoder.h"

namespace veltry {

namespace {

template <typename Value>
std::optional<Value> fromText(std::string_view text)
{
    const std::optional<JSONValue> json = JSONValue::parseIfValid(text);
    return json ? records::readIfPossible<Value>(*json) : std::nullopt;
}

template <typename Value>
bool keep(std::optional<Value> found, Value& value)
{
    if (found)
        value = std::move(*found);
    return found.has_value();
}

} // namespace

bool readColumn(const Statement& row, int column, UUID& value)
{
    return keep(row.id(column), value);
}

bool readColumn(const Statement& row, int column, std::optional<UUID>& value)
{
    value = row.id(column);
    return true;
}

bool readColumn(const Statement& row, int column, std::string& value)
{
    value = row.text(column);
    return true;
}

bool readColumn(const Statement& row, int column, std::optional<std::string>& value)
{
    value = row.optionalString(column);
    return true;
}

bool readColumn(const Statement& row, int column, std::filesystem::path& value)
{
    value = row.path(column);
    return true;
}

bool readColumn(const Statement& row, int column, std::int64_t& value)
{
    value = row.integer(column);
    return true;
}

bool readColumn(const Statement& row, int column, std::optional<std::int32_t>& value)
{
    value = row.optionalInt32(column);
    return true;
}

bool readColumn(const Statement& row, int column, bool& value)
{
    value = row.flag(column);
    return true;
}

bool readColumn(const Statement& row, int column, Date& value)
{
    value = row.date(column);
    return true;
}

bool readColumn(const Statement& row, int column, std::optional<Date>& value)
{
    value = row.optionalDate(column);
    return true;
}

bool readColumn(const Statement& row, int column, Paper& value)
{
    return keep(fromText<Paper>(row.text(column)), value);
}

bool readColumn(const Statement& row, int column, std::vector<Question>& value)
{
    return keep(fromText<std::vector<Question>>(row.text(column)), value);
}

bool readColumn(const Statement& row, int column, std::optional<std::vector<Answer>>& value)
{
    value = fromText<std::vector<Answer>>(row.text(column));
    return true;
}

} // namespace veltry
