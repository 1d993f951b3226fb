#pragma once

#include "Experiments/Telemetry/Telemetry.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <map>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace veltry::test {

/// A second reading of telemetry, to hold the real one against: slow and plain.
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
    enum class Kind { nothing, number, object }; ///< nothing for all that is valid and counts for nothing
    struct NotJSON {};

    void take(const std::string& line)
    {
        if (line.find_first_not_of(" \t\r") == std::string::npos)
            return;
        if (line.size() > 4096)
            return refuse(Drop::tooLong);
        text_ = line;
        at_ = 0;
        depth_ = 0;
        readings_.clear();
        bad_ = 0;
        try {
            const Kind kind = value("", true);
            if (at_ != text_.size())
                throw NotJSON();
            if (kind == Kind::object)
                takeReadings();
            else
                refuse(Drop::notObject);
        } catch (const NotJSON&) {
            refuse(Drop::notJSON);
        }
    }

    void takeReadings()
    {
        if (readings_.empty())
            return refuse(bad_ == 0 ? Drop::noNumbers : Drop::badKey);
        if (readings_.size() > 64)
            return refuse(Drop::tooManyKeys);
        if (bad_ > 0)
            dropped[Drop::badKey] += bad_;
        if (pointCount >= 200'000)
            return refuse(Drop::pointsCap);
        const std::int32_t seq = pointCount + 1;
        for (const auto& [key, number] : readings_) {
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

    void refuse(Drop drop) { ++dropped[drop]; }

    /// Reads a value and, where it counts, keeps the numbers in it below that path.
    Kind value(const std::string& path, bool counts)
    {
        Kind kind = Kind::nothing;
        white();
        if (accept("{")) {
            kind = Kind::object;
            members("}", [&] {
                const std::string key = text();
                white();
                expect(":");
                const bool isKey = key.find('.') == std::string::npos && Telemetry::isPath(key);
                const Kind member = value(path.empty() ? key : path + "." + key, counts && isKey);
                bad_ += counts && !isKey && member != Kind::nothing;
            });
        } else if (accept("[")) {
            members("]", [&] { value("", false); });
        } else if (text_.substr(at_).starts_with('"')) {
            text();
        } else if (
            !accept("true") && !accept("false") && !accept("null") && !accept("NaN") && !accept("Infinity") &&
            !accept("-Infinity")) {
            const double number = this->number();
            kind = std::isfinite(number) ? Kind::number : Kind::nothing;
            if (counts && kind == Kind::number &&
                std::ranges::find(readings_, path, &std::pair<std::string, double>::first) == readings_.end())
                readings_.emplace_back(path, number);
        }
        white();
        return kind;
    }

    template <typename Member>
    void members(std::string_view closing, Member member)
    {
        if (++depth_ > 63)
            throw NotJSON();
        white();
        if (!accept(closing)) {
            do {
                white();
                member();
            } while (accept(","));
            expect(closing);
        }
        --depth_;
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
    std::vector<std::pair<std::string, double>> readings_; // with their whole keys, the first of each
    std::int64_t bad_ = 0;
};

} // namespace veltry::test
