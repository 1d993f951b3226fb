#include "Projects/RowDecoder.h"

#include "Projects/RecordFields.h"

#include <array>
#include <tuple>
#include <type_traits>

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

// Each gives a member what its column holds. False if a row without it gives no record: an identifier or a word that
// isn't known. Everything else reads as something, since SQLite converts.

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

/// None as well where the text is damaged.
bool readColumn(const Statement& row, int column, std::optional<std::vector<Answer>>& value)
{
    value = fromText<std::vector<Answer>>(row.text(column));
    return true;
}

template <typename Enumeration>
    requires std::is_enum_v<Enumeration>
bool readColumn(const Statement& row, int column, Enumeration& value)
{
    const std::optional<Enumeration> known = fromWord<Enumeration>(row.text(column));
    value = known.value_or(value);
    return known.has_value();
}

/// Makes records of rows. Columns are looked up by name once, in the statement as it stands on its first row.
template <typename Record>
class RowDecoder {
public:
    explicit RowDecoder(const Statement& rows)
    {
        auto column = columns_.begin();
        records::forEachField<Record>([&](const auto& field) {
            if (!field.column.empty())
                *column++ = rows.column(field.column);
        });
    }

    /// Nothing for a row that gives no record.
    std::optional<Record> operator()(const Statement& row) const
    {
        Record record{};
        auto column = columns_.begin();
        const auto read = [&](const auto& field) {
            if constexpr (requires { readColumn(row, 0, record.*field.member); })
                return field.column.empty() || readColumn(row, *column++, record.*field.member);
            else
                return true;
        };
        const bool isWhole =
            std::apply([&](const auto&... field) { return (read(field) && ...); }, records::fields<Record>);
        return isWhole ? std::optional(std::move(record)) : std::nullopt;
    }

private:
    std::array<int, std::tuple_size_v<std::remove_cvref_t<decltype(records::fields<Record>)>>> columns_{};
};

/// A paper is one column of its row.
template <>
class RowDecoder<Paper> {
public:
    explicit RowDecoder(const Statement& rows) : column_(rows.column("paper")) {}

    std::optional<Paper> operator()(const Statement& row) const
    {
        Paper paper;
        return readColumn(row, column_, paper) ? std::optional(std::move(paper)) : std::nullopt;
    }

private:
    int column_;
};

} // namespace

template <typename Record>
std::optional<Record> decodeRow(const Statement& row)
{
    return RowDecoder<Record>(row)(row);
}

template <typename Record>
std::vector<Record> decodeAll(Statement rows)
{
    std::vector<Record> decoded;
    if (!rows.step())
        return decoded;
    const RowDecoder<Record> decode(rows);
    do {
        // A row that gives no record is passed over: one damaged row must not hide all others.
        if (std::optional<Record> record = decode(rows))
            decoded.push_back(std::move(*record));
    } while (rows.step());
    return decoded;
}

template <typename Record>
std::optional<Record> decodeFirst(Statement rows)
{
    return rows.step() ? decodeRow<Record>(rows) : std::nullopt;
}

// Here and not in the header, so that one source alone pays for the lists of fields.
template std::optional<Project> decodeRow(const Statement&);
template std::vector<AgentQuestions> decodeAll(Statement);
template std::vector<Citation> decodeAll(Statement);
template std::vector<Conversation> decodeAll(Statement);
template std::vector<Experiment> decodeAll(Statement);
template std::vector<Paper> decodeAll(Statement);
template std::vector<Run> decodeAll(Statement);
template std::vector<SaidMatch> decodeAll(Statement);
template std::optional<AgentQuestions> decodeFirst(Statement);
template std::optional<Experiment> decodeFirst(Statement);
template std::optional<Run> decodeFirst(Statement);

} // namespace veltry
