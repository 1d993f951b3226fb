#pragma once

#include "Experiments/Telemetry/Telemetry.h"

#include <cstddef>
#include <expected>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace veltry {

/// A number of a line.
struct TelemetryReading {
    std::string key; ///< with full stops, `eval.loss`
    double number = 0;
    /// For the caller to keep where readings of this key go: it stays as long as lines repeat the key at this place.
    std::optional<std::size_t> column{};
};

/// Reads lines of telemetry, one after another: JSON as common programs write it, which includes `NaN` and `Infinity`.
///
/// A value's text decides what it is: only numbers and the objects around them matter, and everything else is checked
/// and forgotten, so no tree is built. Most lines of a run repeat the keys of the line before; so each reading is first
/// held against the one that stood at its place there, and then neither its key nor its column is looked for.
class TelemetryLineReader {
public:
    using Reading = TelemetryReading;

    static constexpr std::size_t maximumDepth = 63; ///< levels of objects and arrays

    /// Reads one line, which isn't blank and not longer than allowed. Its readings are at least one and at most
    /// Telemetry::maxKeysPerPoint, each of another key, in the order of the text, and good until the next call.
    [[nodiscard]] std::expected<std::span<Reading>, Telemetry::Drop> read(std::string_view line);

    /// How many keys of the last line were passed over for their spelling.
    [[nodiscard]] std::size_t badKeys() const noexcept { return badKeys_; }

private:
    /// What a value may give. Below a key that is spelt badly, and in arrays, there are no readings.
    enum class Use { readings, nothing };

    struct Name {
        std::string_view text; ///< in the line, or in unescaped_
        bool isGood = false;   ///< as a part of a key
    };

    // One for each rule of the grammar. Each steps over what it reads and returns false where that isn't JSON.
    bool anyValue();
    bool object(Use use);
    bool member(Use use);
    bool memberValue(const Name& name);
    bool array();
    bool name(Name& name);
    bool text();
    bool escape(std::string* unescaped);
    bool literal();
    bool number(double& value); ///< infinite where no double is near

    bool enter();
    void skipWhite();
    bool accept(char wanted); ///< steps over it if it is next
    [[nodiscard]] bool atNumber() const;
    /// The next byte; NUL, which no rule has any use for, at the line's end.
    [[nodiscard]] char peek() const { return next_ == end_ ? '\0' : *next_; }

    void add(std::string_view name, double number);
    [[nodiscard]] bool isAdded(std::string_view name) const;
    [[nodiscard]] bool isKey(const Reading& reading, std::string_view name) const;

    const char* next_ = nullptr;
    const char* end_ = nullptr;
    std::size_t depth_ = 0;
    std::string prefix_;    // of the object that is being read: "eval."
    std::string unescaped_; // a name that was written with escapes
    std::size_t badKeys_ = 0;

    std::vector<Reading> readings_; // the first count_ are this line's; after them stand older ones
    std::size_t count_ = 0;
    std::size_t earlierCount_ = 0; // of the line before
    bool inStep_ = true;           // all keys so far stand where they stood in the line before
    bool tooMany_ = false;
};

} // namespace veltry
