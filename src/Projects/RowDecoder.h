#pragma once

#include "Projects/RecordFields.h"
#include "Projects/Statement.h"

#include <array>
#include <tuple>
#include <vector>

namespace veltry {

// Each gives a member what its column holds. False if a row without it gives no record: an identifier or a word that
// isn't known. Everything else reads as something, since SQLite converts.

bool readColumn(const Statement& row, int column, UUID& value);
bool readColumn(const Statement& row, int column, std::optional<UUID>& value);
bool readColumn(const Statement& row, int column, std::string& value);
bool readColumn(const Statement& row, int column, std::optional<std::string>& value);
bool readColumn(const Statement& row, int column, std::filesystem::path& value);
bool readColumn(const Statement& row, int column, std::int64_t& value);
bool readColumn(const Statement& row, int column, std::optional<std::int32_t>& value);
bool readColumn(const Statement& row, int column, bool& value);
bool readColumn(const Statement& row, int column, Date& value);
bool readColumn(const Statement& row, int column, std::optional<Date>& value);
bool readColumn(const Statement& row, int column, Paper& value);
bool readColumn(const Statement& row, int column, std::vector<Question>& value);
/// None as well where the text is damaged.
bool readColumn(const Statement& row, int column, std::optional<std::vector<Answer>>& value);

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

/// The records of all rows that give one, in their order.
template <typename Record>
[[nodiscard]] std::vector<Record> decodeAll(Statement rows)
{
    std::vector<Record> records;
    if (!rows.step())
        return records;
    const RowDecoder<Record> decode(rows);
    do {
        if (std::optional<Record> record = decode(rows))
            records.push_back(std::move(*record));
    } while (rows.step());
    return records;
}

/// The record of the first row, if there is a row and it gives one.
template <typename Record>
[[nodiscard]] std::optional<Record> decodeFirst(Statement rows)
{
    return rows.step() ? RowDecoder<Record>(rows)(rows) : std::nullopt;
}

} // namespace veltry
