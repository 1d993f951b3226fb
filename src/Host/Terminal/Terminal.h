#pragma once

#include "Platform/StandardStreams.h"

#include <chrono>
#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

namespace veltry {

/// How a piece of text is set off where the terminal shows colours.
enum class Style { plain, bold, dim, red, green, yellow, blue, magenta, cyan };

/// Where a command writes, and what can be shown there. Whatever isn't a terminal gets plain text that isn't cut.
class Terminal {
public:
    /// Standard output, or standard error for notes. Colours only on a terminal that knows them and never with a
    /// `NO_COLOR` that isn't empty; drawings in ASCII unless the locale's characters are UTF-8.
    [[nodiscard]] static Terminal standardOutput();
    [[nodiscard]] static Terminal standardError();

    Terminal(int descriptor, bool isTerminal, bool hasColours, bool isUTF8)
        : descriptor_(descriptor), isTerminal_(isTerminal), hasColours_(hasColours), isUTF8_(isUTF8)
    {
    }

    [[nodiscard]] bool isTerminal() const { return isTerminal_; }
    [[nodiscard]] bool hasColours() const { return hasColours_; }
    [[nodiscard]] bool isUTF8() const { return isUTF8_; }
    /// Whether what was written can be written over.
    [[nodiscard]] bool canRedraw() const;

    using Size = StandardStreams::Size;

    /// As it is now; nothing if this isn't a terminal.
    [[nodiscard]] std::optional<Size> size() const;

    /// The text as it is, or in the style's colours. It takes the same columns.
    [[nodiscard]] std::string styled(Style style, std::string_view text) const;

    /// Writes all of it at once. Throws Closed if nobody reads any more (`veltry … | head`), SystemError for any other
    /// failure.
    void write(std::string_view text) const;

    struct Closed {};

    /// Lets the time pass, between two looks of a command that follows something. Throws Closed as soon as nobody reads
    /// any more.
    void rest(std::chrono::milliseconds time) const;

private:
    int descriptor_;
    bool isTerminal_;
    bool hasColours_;
    bool isUTF8_;
};

/// Whether a person sits at standard input and could be asked something.
[[nodiscard]] bool canAsk();

} // namespace veltry
