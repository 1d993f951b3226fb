#include "Experiments/Telemetry/TelemetryLineReader.h"

#include "Experiments/Telemetry/TelemetryNumber.h"
#include "Experiments/Telemetry/TelemetryPath.h"

#include <algorithm>
#include <cmath>
#include <utility>

namespace veltry {

namespace {

// The last three are no JSON, but common writers of JSON write them.
constexpr std::string_view literals[] = {"true", "false", "null", "NaN", "Infinity", "-Infinity"};

constexpr bool isDigit(char c)
{
    return c >= '0' && c <= '9';
}

int hexDigit(char c)
{
    if (isDigit(c))
        return c - '0';
    const int letter = c | 0x20;
    return letter >= 'a' && letter <= 'f' ? letter - 'a' + 10 : -1;
}

char unescapedByte(char c)
{
    switch (c) {
    case 'b':
        return '\b';
    case 'f':
        return '\f';
    case 'n':
        return '\n';
    case 'r':
        return '\r';
    case 't':
        return '\t';
    default:
        return c;
    }
}

} // namespace

std::expected<std::span<TelemetryLineReader::Reading>, Telemetry::Drop> TelemetryLineReader::read(std::string_view line)
{
    using Drop = Telemetry::Drop;
    next_ = line.data();
    end_ = next_ + line.size();
    depth_ = 0;
    badKeys_ = 0;
    prefix_.clear();
    // Most lines repeat the keys of the line before, whose readings stay to be compared and filled anew.
    earlierCount_ = std::exchange(count_, 0);
    inStep_ = true;
    tooMany_ = false;

    skipWhite();
    const bool isObject = peek() == '{';
    const bool isValue = isObject ? object(Use::readings) : anyValue();
    skipWhite();
    if (!isValue || next_ != end_)
        return std::unexpected(Drop::notJSON);
    if (!isObject)
        return std::unexpected(Drop::notObject);
    if (count_ == 0)
        return std::unexpected(badKeys_ == 0 ? Drop::noNumbers : Drop::badKey);
    if (tooMany_)
        return std::unexpected(Drop::tooManyKeys);
    return std::span(readings_).first(count_);
}

bool TelemetryLineReader::anyValue()
{
    switch (peek()) {
    case '{':
        return object(Use::nothing);
    case '[':
        return array();
    case '"':
        return text();
    default:
        if (!atNumber())
            return literal();
        double ignored = 0;
        return number(ignored);
    }
}

bool TelemetryLineReader::object(Use use)
{
    if (!accept('{') || !enter())
        return false;
    skipWhite();
    if (!accept('}')) {
        do {
            skipWhite();
            if (!member(use))
                return false;
            skipWhite();
        } while (accept(','));
        if (!accept('}'))
            return false;
    }
    --depth_;
    return true;
}

bool TelemetryLineReader::member(Use use)
{
    Name name;
    if (use == Use::readings ? !this->name(name) : !text())
        return false;
    skipWhite();
    if (!accept(':'))
        return false;
    skipWhite();
    return use == Use::readings ? memberValue(name) : anyValue();
}

bool TelemetryLineReader::memberValue(const Name& name)
{
    if (peek() == '{' && name.isGood) {
        const std::size_t length = prefix_.size();
        prefix_.append(name.text).push_back('.');
        const bool isObject = object(Use::readings);
        prefix_.resize(length);
        return isObject;
    }
    if (atNumber()) {
        double value = 0;
        if (!number(value))
            return false;
        // NaN counts as no number at all, so its key is no bad key either.
        if (std::isfinite(value) && name.isGood)
            add(name.text, value);
        else if (std::isfinite(value))
            ++badKeys_;
        return true;
    }
    if (peek() == '{')
        ++badKeys_;
    return anyValue(); // what is no number counts for nothing, also under a bad key
}

bool TelemetryLineReader::array()
{
    if (!accept('[') || !enter())
        return false;
    skipWhite();
    if (!accept(']')) {
        do {
            skipWhite();
            if (!anyValue())
                return false;
            skipWhite();
        } while (accept(','));
        if (!accept(']'))
            return false;
    }
    --depth_;
    return true;
}

bool TelemetryLineReader::name(Name& name)
{
    const char* const start = next_;
    const char* at = start == end_ ? start : start + 1;
    while (at != end_ && isTelemetryNameCharacter(*at))
        ++at;
    if (peek() == '"' && at != end_ && *at == '"') {
        name.text = std::string_view(start + 1, at);
        name.isGood = !name.text.empty();
        next_ = at + 1;
        return true;
    }
    if (!text())
        return false;
    // It holds an escape, and so may spell a good name all the same, or it is a bad one.
    const char* const behind = std::exchange(next_, start + 1);
    unescaped_.clear();
    while (next_ != behind - 1)
        if (*next_ == '\\')
            escape(&unescaped_);
        else
            unescaped_.push_back(*next_++);
    next_ = behind;
    name.text = unescaped_;
    name.isGood = !unescaped_.empty() && std::ranges::all_of(unescaped_, isTelemetryNameCharacter);
    return true;
}

bool TelemetryLineReader::text()
{
    if (!accept('"'))
        return false;
    while (next_ != end_) {
        const char c = *next_;
        if (c == '\\') {
            if (!escape(nullptr))
                return false;
            continue;
        }
        if (static_cast<unsigned char>(c) < 0x20)
            return false;
        ++next_;
        if (c == '"')
            return true;
    }
    return false;
}

bool TelemetryLineReader::escape(std::string* unescaped)
{
    ++next_;
    if (next_ == end_)
        return false;
    char byte = unescapedByte(*next_++);
    if (byte == 'u') {
        int code = 0;
        for (int count = 0; count < 4; ++count) {
            const int digit = hexDigit(peek());
            if (digit < 0)
                return false;
            code = code * 16 + digit;
            ++next_;
        }
        byte = code < 0x80 ? static_cast<char>(code) : '?'; // a name with anything beyond ASCII is bad whatever it is
    }
    if (unescaped)
        unescaped->push_back(byte);
    return true;
}

bool TelemetryLineReader::literal()
{
    const std::string_view rest(next_, end_);
    for (const std::string_view literal : literals)
        if (rest.starts_with(literal)) {
            next_ += literal.size();
            return true;
        }
    return false;
}

bool TelemetryLineReader::number(double& value)
{
    const char* const behind = readTelemetryNumber(next_, end_, value);
    if (behind)
        next_ = behind;
    return behind;
}

bool TelemetryLineReader::enter()
{
    // The reader calls itself, and a line of nothing but brackets must not use up the stack.
    return ++depth_ <= maximumDepth;
}

void TelemetryLineReader::skipWhite()
{
    while (next_ != end_ && (*next_ == ' ' || *next_ == '\t' || *next_ == '\r' || *next_ == '\n'))
        ++next_;
}

bool TelemetryLineReader::accept(char wanted)
{
    if (next_ == end_ || *next_ != wanted)
        return false;
    ++next_;
    return true;
}

bool TelemetryLineReader::atNumber() const
{
    return isDigit(peek()) || (peek() == '-' && (end_ - next_ < 2 || next_[1] != 'I')); // -Infinity
}

void TelemetryLineReader::add(std::string_view name, double number)
{
    inStep_ = inStep_ && count_ < earlierCount_ && isKey(readings_[count_], name);
    // A key that is repeated keeps its first number. In step there is no need to look: the line before had each key
    // once.
    if (!inStep_ && isAdded(name))
        return;
    if (count_ == Telemetry::maxKeysPerPoint) {
        tooMany_ = true;
        return;
    }
    if (count_ == readings_.size())
        readings_.emplace_back();
    Reading& reading = readings_[count_++];
    reading.number = number;
    if (inStep_ || isKey(reading, name))
        return;
    reading.key.assign(prefix_).append(name);
    reading.column.reset();
}

bool TelemetryLineReader::isAdded(std::string_view name) const
{
    return std::ranges::any_of(
        std::span(readings_).first(count_), [&](const Reading& reading) { return isKey(reading, name); });
}

bool TelemetryLineReader::isKey(const Reading& reading, std::string_view name) const
{
    const std::string_view key = reading.key;
    return key.size() == prefix_.size() + name.size() && key.ends_with(name) && key.starts_with(prefix_);
}

} // namespace veltry
