#pragma once

#include "Experiments/Telemetry.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <map>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

namespace veltry::test {

/// A second reading of telemetry, to hold the real one against: slow and plain, with a tree for each line.
class PlainTelemetry {
public:
    using Drop = Telemetry::Drop;

    std::vector<std::string> keys;
    std::map<std::string, std::vector<std::pair<std::int32_t, double>>> columns;
    std::int32_t pointCount = 0;
    Telemetry::Drops dropped;

    PlainTelemetry(std::string_view file, bool finished)
    {
        std::string line;
        for (const char c : file)
            if (c == '\n')
                take(std::exchange(line, {}));
            else
                line += c;
        if (finished)
            take(line);
    }

    [[nodiscard]] bool isSame(const Telemetry& other) const
    {
        return keys == other.keys() && pointCount == other.pointCount() && dropped == other.dropped() &&
               std::ranges::all_of(columns, [&](const auto& column) {
                   const Telemetry::Column* theirs = other.column(column.first);
                   return theirs && theirs->seqs.size() == column.second.size() &&
                          std::ranges::equal(
                              column.second, theirs->seqs, {}, &std::pair<std::int32_t, double>::first) &&
                          std::ranges::equal(
                              column.second, theirs->values, {}, &std::pair<std::int32_t, double>::second);
               });
    }

private:
    struct OrderedJSON;
    using Object = std::vector<std::pair<std::string, OrderedJSON>>;
    struct OrderedJSON {
        std::variant<std::monostate, double, Object> value; ///< nothing for all that is valid and counts for nothing
    };
    struct NotJSON {};

    void take(const std::string& line)
    {
        if (line.find_first_not_of(" \t\r") == std::string::npos)
            return;
        if (line.size() > 4096)
            return refuse(Drop::tooLong);
        try {
            text_ = line;
            at_ = 0;
            depth_ = 0;
            const OrderedJSON json = value();
            if (at_ != text_.size())
                throw NotJSON();
            if (const auto* object = std::get_if<Object>(&json.value))
                takeObject(*object);
            else
                refuse(Drop::notObject);
        } catch (const NotJSON&) {
            refuse(Drop::notJSON);
        }
    }

    void takeObject(const Object& object)
    {
        std::vector<std::pair<std::string, double>> readings;
        std::int64_t bad = 0;
        flatten(object, "", readings, bad);
        if (readings.empty())
            return refuse(bad == 0 ? Drop::noNumbers : Drop::badKey);
        if (readings.size() > 64)
            return refuse(Drop::tooManyKeys);
        if (bad > 0)
            dropped[Drop::badKey] += bad;
        if (pointCount >= 200'000)
            return refuse(Drop::pointsCap);
        const std::int32_t seq = pointCount + 1;
        for (const auto& [key, number] : readings) {
            if (!columns.contains(key) && keys.size() == 256) {
                refuse(Drop::keysCap);
                continue;
            }
            if (!columns.contains(key))
                keys.push_back(key);
            columns[key].emplace_back(seq, number);
            pointCount = seq;
        }
    }

    static void flatten(
        const Object& object, const std::string& prefix, std::vector<std::pair<std::string, double>>& readings,
        std::int64_t& bad)
    {
        for (const auto& [key, json] : object) {
            const std::string full = prefix + key;
            if (std::holds_alternative<std::monostate>(json.value))
                continue;
            if (key.find('.') != std::string::npos || !Telemetry::isPath(key))
                ++bad;
            else if (const auto* inner = std::get_if<Object>(&json.value))
                flatten(*inner, full + ".", readings, bad);
            else if (std::ranges::find(readings, full, &std::pair<std::string, double>::first) == readings.end())
                readings.emplace_back(full, std::get<double>(json.value));
        }
    }

    void refuse(Drop drop) { ++dropped[drop]; }

    OrderedJSON value()
    {
        white();
        OrderedJSON result;
        if (accept("{"))
            result.value = members<Object>("}", [&](Object& object) {
                std::string key = text();
                white();
                expect(":");
                object.emplace_back(std::move(key), value());
            });
        else if (accept("["))
            members<std::vector<OrderedJSON>>("]", [&](auto& elements) { elements.push_back(value()); });
        else if (text_.substr(at_).starts_with('"'))
            text();
        else if (
            !accept("true") && !accept("false") && !accept("null") && !accept("NaN") && !accept("Infinity") &&
            !accept("-Infinity"))
            if (const double number = this->number(); std::isfinite(number))
                result.value = number;
        white();
        return result;
    }

    template <typename Items, typename Member>
    Items members(std::string_view closing, Member member)
    {
        if (++depth_ > 63)
            throw NotJSON();
        Items items;
        white();
        if (!accept(closing)) {
            do {
                white();
                member(items);
            } while (accept(","));
            expect(closing);
        }
        --depth_;
        return items;
    }

    std::string text()
    {
        std::string result;
        expect("\"");
        while (!accept("\"")) {
            if (static_cast<unsigned char>(byte()) < 0x20)
                throw NotJSON();
            result += text_[at_++];
            if (result.back() != '\\')
                continue;
            result.back() = byte();
            ++at_;
            if (result.back() == 'u') {
                const std::string digits(text_.substr(at_, 4));
                if (digits.size() < 4 || digits.find_first_not_of("0123456789abcdefABCDEF") != std::string::npos)
                    throw NotJSON();
                at_ += 4;
                const long code = std::strtol(digits.c_str(), nullptr, 16);
                result.back() = code < 0x80 ? static_cast<char>(code) : '?';
            } else if (const auto place = std::string_view("bfnrt").find(result.back());
                       place != std::string_view::npos)
                result.back() = "\b\f\n\r\t"[place];
        }
        return result;
    }

    double number()
    {
        const std::size_t start = at_;
        accept("-");
        digits();
        if (accept("."))
            digits();
        if (accept("e") || accept("E")) {
            accept("-") || accept("+");
            digits();
        }
        return std::strtod(std::string(text_.substr(start, at_ - start)).c_str(), nullptr);
    }

    void digits()
    {
        const std::size_t start = at_;
        while (at_ < text_.size() && text_[at_] >= '0' && text_[at_] <= '9')
            ++at_;
        if (at_ == start)
            throw NotJSON();
    }

    void white() { at_ = std::min(text_.find_first_not_of(" \t\r\n", at_), text_.size()); }

    char byte() const { return at_ < text_.size() ? text_[at_] : throw NotJSON(); }

    bool accept(std::string_view wanted)
    {
        const bool isNext = text_.substr(at_).starts_with(wanted);
        at_ += isNext ? wanted.size() : 0;
        return isNext;
    }

    void expect(std::string_view wanted)
    {
        if (!accept(wanted))
            throw NotJSON();
    }

    std::string_view text_; // of one line
    std::size_t at_ = 0;
    int depth_ = 0;
};

} // namespace veltry::test
