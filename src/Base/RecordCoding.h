#pragma once

#include "Base/Date.h"
#include "Base/DecodingFailure.h"
#include "Base/JSONValue.h"
#include "Base/UUID.h"
#include "Base/Words.h"

#include <concepts>
#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <tuple>
#include <type_traits>
#include <utility>
#include <variant>
#include <vector>

/// How records are read and written by tables of their fields. For the sources of a module that has tables, not for its
/// headers: whoever includes a table pays for its templates.
///
///     template <>
///     constexpr auto fields<Citation> = std::tuple(
///         field("experimentID", &Citation::experimentID, "experiment_id"), field("paper", &Citation::paper, "paper"));
namespace veltry::records {

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
    std::string_view key; ///< in JSON
    Value Record::* member;
    std::string_view column; ///< of the store; empty if it isn't kept in one

    /// `json` is what stands at the key, or null.
    static void read(Value& value, const JSONValue* json) { Policy::read(value, json); }
};

/// The table of a record's fields: a tuple of Field.
template <typename Record>
constexpr auto fields = nullptr;

/// The word that marks a case of a union.
template <typename Case>
constexpr std::string_view caseWord{};

/// The key that holds the word; a record without one is no union.
template <typename Union>
constexpr std::string_view caseKey{};

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

template <std::integral Number>
struct Codec<Number> {
    static Number read(const JSONValue& json)
    {
        const std::optional<std::int64_t> whole = json.integer();
        if (!whole || static_cast<double>(*whole) != *json.number() || !std::in_range<Number>(*whole))
            throw DecodingFailure("is no whole number of " + std::to_string(sizeof(Number) * 8) + " bits");
        return static_cast<Number>(*whole);
    }
    static JSONValue write(Number number) { return number; }
};

template <>
struct Codec<double> {
    static double read(const JSONValue& json) { return expect(json.number(), "is no number"); }
    static JSONValue write(double number) { return number; }
};

template <>
struct Codec<UUID> {
    static UUID read(const JSONValue& json)
    {
        const std::optional<UUID> id = UUID::parse(expect(json.string(), "is no text"));
        return expect(id ? &*id : nullptr, "is no identifier");
    }
    static JSONValue write(const UUID& id) { return id.text(); }
};

/// In seconds since 2001.
template <>
struct Codec<Date> {
    static Date read(const JSONValue& json) { return {Codec<double>::read(json)}; }
    static JSONValue write(Date date) { return date.secondsSince2001; }
};

template <>
struct Codec<std::filesystem::path> {
    static std::filesystem::path read(const JSONValue& json) { return Codec<std::string>::read(json); }
    static JSONValue write(const std::filesystem::path& path) { return path.native(); }
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
        const std::optional<Enumeration> known = fromWord<Enumeration>(expect(json.string(), "is no text"));
        return expect(known ? &*known : nullptr, "is no word that is known");
    }
    static JSONValue write(Enumeration value) { return toWord(value); }
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
        } catch (const DecodingFailure&) {
            // It may be missed.
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
            } catch (const DecodingFailure&) {
                // It costs itself alone.
            }
    }
};

template <typename Policy = Strict, typename Record, typename Value>
constexpr Field<Policy, Record, Value> field(std::string_view key, Value Record::* member, std::string_view column = {})
{
    return {key, member, column};
}

/// Calls `body` with each field of the record's table, in its order.
template <typename Record, typename Body>
void forEachField(Body body)
{
    std::apply([&](const auto&... field) { (body(field), ...); }, fields<Record>);
}

template <typename Record>
Record readRecord(const JSONValue& json)
{
    expect(json.object(), "is no object");
    Record record{};
    forEachField<Record>(
        [&](const auto& field) { within(field.key, [&] { field.read(record.*field.member, json.find(field.key)); }); });
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
    forEachField<Record>([&](const auto& field) { writeMember(object, field.key, record.*field.member); });
    return object;
}

/// The record that the JSON holds; nothing where it doesn't read.
template <typename Record>
std::optional<Record> readIfPossible(const JSONValue& json)
{
    try {
        return Codec<Record>::read(json);
    } catch (const DecodingFailure&) {
        // The caller has no use for the reason.
        return std::nullopt;
    }
}

} // namespace veltry::records
