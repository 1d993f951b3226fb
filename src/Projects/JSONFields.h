#pragma once

#include "Base/Date.h"
#include "Base/JSONValue.h"
#include "Base/UUID.h"

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace veltry {

/// The records of an array in their order. Nothing if it is no array, or if one of them can't be read.
template <typename Record>
[[nodiscard]] std::optional<std::vector<Record>> listFromJSON(
    const JSONValue& value, std::optional<Record> (*read)(const JSONValue&))
{
    const JSONValue::Array* elements = value.array();
    if (!elements)
        return std::nullopt;
    std::vector<Record> records;
    for (const JSONValue& element : *elements) {
        std::optional<Record> record = read(element);
        if (!record)
            return std::nullopt;
        records.push_back(std::move(*record));
    }
    return records;
}

/// The array of the records' JSON forms, as their toJSON() makes them.
template <typename Record>
[[nodiscard]] JSONValue listToJSON(const std::vector<Record>& records)
{
    JSONValue::Array elements;
    for (const Record& record : records)
        elements.push_back(toJSON(record));
    return elements;
}

/// Writes and reads the members of a record's JSON form. Members that are absent are left out; where they are read, a
/// null counts as absent.
class JSONFields {
public:
    JSONFields() = default;
    /// For reading. What isn't an object counts as one without members.
    explicit JSONFields(const JSONValue& value);

    void set(std::string_view key, JSONValue value) { members_.insert_or_assign(std::string(key), std::move(value)); }

    void set(std::string_view key, const UUID& id) { set(key, JSONValue(id.text())); }

    void set(std::string_view key, Date date) { set(key, JSONValue(date.secondsSince2001)); }

    template <typename Value>
    void set(std::string_view key, const std::optional<Value>& value)
    {
        if (value)
            set(key, *value);
    }

    [[nodiscard]] JSONValue take() { return std::move(members_); }

    // Each reads one member; one that is missing or of another type gives an empty value and makes isWhole() false.

    [[nodiscard]] std::string string(std::string_view key);
    [[nodiscard]] std::string nonEmptyString(std::string_view key);
    [[nodiscard]] std::vector<std::string> strings(std::string_view key);
    [[nodiscard]] std::int64_t integer(std::string_view key); ///< a number without a fraction
    [[nodiscard]] bool flag(std::string_view key);
    [[nodiscard]] UUID id(std::string_view key);
    [[nodiscard]] Date date(std::string_view key);

    /// A list of records: `fields.list("options", &optionFromJSON)`.
    template <typename Record>
    [[nodiscard]] std::vector<Record> list(std::string_view key, std::optional<Record> (*read)(const JSONValue&))
    {
        std::optional<std::vector<Record>> records = listFromJSON(member(key), read);
        if (!records)
            refuse();
        return std::move(records).value_or(std::vector<Record>());
    }

    /// The same for a member that may be absent: `fields.optional("year", &JSONFields::integer)`.
    template <typename Value>
    [[nodiscard]] std::optional<Value> optional(std::string_view key, Value (JSONFields::*read)(std::string_view))
    {
        return isThere(key) ? std::optional<Value>((this->*read)(key)) : std::nullopt;
    }

    /// For a rule of the record's own that a member broke.
    void refuse() { whole_ = false; }

    /// False once any member could not be read.
    [[nodiscard]] bool isWhole() const { return whole_; }

private:
    [[nodiscard]] const JSONValue& member(std::string_view key) const;

    [[nodiscard]] bool isThere(std::string_view key) const { return !member(key).isNull(); }

    JSONValue::Object members_;
    bool whole_ = true;
};

} // namespace veltry
