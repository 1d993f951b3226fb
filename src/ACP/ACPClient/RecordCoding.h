#pragma once

#include "ACP/ACPClient/WireRecord.h"

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <tuple>
#include <type_traits>
#include <utility>
#include <variant>
#include <vector>

/// How records are read and written by tables of their fields. Private to the source that holds the tables.
namespace veltry::wire {

/// Whatever fails in `read` failed at `step`.
template <typename Read>
auto within(std::string_view step, Read read)
{
    try {
        return read();
    } catch (DecodingFailure& failure) {
        failure.enter(step);
        throw;
    }
}

template <typename Value>
const Value& expect(const Value* found, const char* otherwise)
{
    if (!found)
        throw DecodingFailure(otherwise);
    return *found;
}

/// One field: how it is read where its key is there or missing says the policy.
template <typename Policy, typename Record, typename Value>
struct Field {
    std::string_view key;
    Value Record::* member;
};

/// The table of a record's fields: a tuple of Field.
template <typename Record>
constexpr auto fields = nullptr;

/// The word of each known value of an enumeration; it has none by itself.
template <typename Enumeration>
constexpr auto words = nullptr;

/// The word that marks a case of a union.
template <typename Case>
constexpr std::string_view caseWord{};

template <typename Union>
constexpr std::string_view caseKey{}; // of a record that is no union

template <typename Record>
Record readRecord(const JSONValue& json);
template <typename Record>
JSONValue::Object writeRecord(const Record& record);

/// read() throws DecodingFailure. What isn't named below is a record with a table of fields.
template <typename Value>
struct Codec {
    static Value read(const JSONValue& json) { return readRecord<Value>(json); }
    static JSONValue write(const Value& record) { return writeRecord(record); }
};

template <>
struct Codec<JSONValue> {
    static JSONValue read(const JSONValue& json) { return json; }
    static JSONValue write(const JSONValue& value) { return value; }
};

template <>
struct Codec<std::string> {
    static std::string read(const JSONValue& json) { return expect(json.string(), "is no text"); }
    static JSONValue write(const std::string& text) { return text; }
};

template <>
struct Codec<bool> {
    static bool read(const JSONValue& json) { return expect(json.boolean(), "is neither true nor false"); }
    static JSONValue write(bool flag) { return flag; }
};

template <>
struct Codec<std::int64_t> {
    static std::int64_t read(const JSONValue& json)
    {
        const std::optional<std::int64_t> whole = json.integer();
        if (!whole || static_cast<double>(*whole) != *json.number())
            throw DecodingFailure("is no whole number of 64 bits");
        return *whole;
    }
    static JSONValue write(std::int64_t number) { return number; }
};

template <typename Element>
struct Codec<std::vector<Element>> {
    static std::vector<Element> read(const JSONValue& json)
    {
        std::vector<Element> elements;
        for (const JSONValue& element : expect(json.array(), "is no list"))
            elements.push_back(
                within("[" + std::to_string(elements.size()) + "]", [&] { return Codec<Element>::read(element); }));
        return elements;
    }
    static JSONValue write(const std::vector<Element>& elements)
    {
        JSONValue::Array array;
        for (const Element& element : elements)
            array.push_back(Codec<Element>::write(element));
        return array;
    }
};

template <typename Enumeration>
    requires std::is_enum_v<Enumeration>
struct Codec<Enumeration> {
    static Enumeration read(const JSONValue& json)
    {
        const std::string& text = expect(json.string(), "is no text");
        for (const auto& [value, word] : words<Enumeration>)
            if (word == text)
                return value;
        throw DecodingFailure("is no word that is known");
    }
    static JSONValue write(Enumeration wanted)
    {
        for (const auto& [value, word] : words<Enumeration>)
            if (value == wanted)
                return word;
        return nullptr; // every value has its word
    }
};

/// An enumeration that keeps a word it doesn't know.
template <typename Open>
    requires requires(Open open) { open.word; }
struct Codec<Open> {
    static Open read(const JSONValue& json) { return Open(Codec<std::string>::read(json)); }
    static JSONValue write(const Open& open) { return open.word; }
};

/// A union whose case is named by one key of the object. Its last case takes what no other does, whole.
template <typename Union>
    requires(!caseKey<Union>.empty())
struct Codec<Union> {
    using Value = decltype(Union::value);
    static constexpr std::size_t last = std::variant_size_v<Value> - 1;
    using Rest = std::variant_alternative_t<last, Value>;

    static Union read(const JSONValue& json) { return readCase(json, std::make_index_sequence<last>()); }

    static JSONValue write(const Union& record)
    {
        return std::visit(
            []<typename Case>(const Case& found) -> JSONValue {
                if constexpr (std::is_same_v<Case, Rest>) {
                    return found.raw;
                } else {
                    JSONValue::Object object = writeRecord(found);
                    object.emplace(caseKey<Union>, caseWord<Case>);
                    return object;
                }
            },
            record.value);
    }

private:
    template <std::size_t... index>
    static Union readCase(const JSONValue& json, std::index_sequence<index...> /*cases*/)
    {
        expect(json.object(), "is no object");
        const std::string word = within(
            caseKey<Union>, [&] { return Codec<std::string>::read(expect(json.find(caseKey<Union>), "is missing")); });
        std::optional<Value> found;
        const auto tryCase = [&]<typename Case>(std::type_identity<Case>) {
            if (word == caseWord<Case>)
                found.emplace(std::in_place_type<Case>, readRecord<Case>(json));
            return found.has_value();
        };
        if (!(tryCase(std::type_identity<std::variant_alternative_t<index, Value>>()) || ...))
            found.emplace(Rest{word, json});
        return Union{std::move(*found)};
    }
};

/// As the type says: an optional may be missing or null, anything else must be there, and what is there must read.
struct Strict {
    template <typename Value>
    static void read(Value& value, const JSONValue* json)
    {
        value = Codec<Value>::read(expect(json, "is missing"));
    }
    template <typename Value>
    static void read(std::optional<Value>& value, const JSONValue* json)
    {
        if (json && !json->isNull())
            value = Codec<Value>::read(*json);
    }
};

/// What doesn't read stays as a new record has it.
template <typename Policy>
struct OrDefault {
    template <typename Value>
    static void read(Value& value, const JSONValue* json)
    {
        try {
            Policy::read(value, json);
        } catch (const DecodingFailure&) { // may be missed
        }
    }
};

/// Must be a list; of its elements those that read.
struct EachThatReads {
    template <typename Element>
    static void read(std::vector<Element>& elements, const JSONValue* json)
    {
        for (const JSONValue& element : expect(expect(json, "is missing").array(), "is no list"))
            try {
                elements.push_back(Codec<Element>::read(element));
            } catch (const DecodingFailure&) { // costs itself alone
            }
    }
};

template <typename Policy = Strict, typename Record, typename Value>
constexpr Field<Policy, Record, Value> field(std::string_view key, Value Record::* member)
{
    return {key, member};
}

template <typename Record, typename Policy, typename Owner, typename Value>
void readField(Record& record, const Field<Policy, Owner, Value>& field, const JSONValue& json)
{
    within(field.key, [&] { Policy::read(record.*field.member, json.find(field.key)); });
}

template <typename Record>
Record readRecord(const JSONValue& json)
{
    expect(json.object(), "is no object");
    Record record{};
    std::apply([&](const auto&... field) { (readField(record, field, json), ...); }, fields<Record>);
    return record;
}

template <typename Value>
void writeMember(JSONValue::Object& object, std::string_view key, const Value& value)
{
    object.emplace(key, Codec<Value>::write(value));
}

template <typename Value>
void writeMember(JSONValue::Object& object, std::string_view key, const std::optional<Value>& value)
{
    if (value)
        writeMember(object, key, *value);
}

template <typename Record>
JSONValue::Object writeRecord(const Record& record)
{
    JSONValue::Object object;
    std::apply(
        [&](const auto&... field) { (writeMember(object, field.key, record.*field.member), ...); }, fields<Record>);
    return object;
}

} // namespace veltry::wire
