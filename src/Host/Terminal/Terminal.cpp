#include "Host/Terminal/Terminal.h"

#include "Base/Words.h"
#include "Platform/ProcessFacts.h"
#include "Platform/StandardStreams.h"

#include <algorithm>

namespace veltry {

/// The sequence that begins it.
template <>
constexpr auto wordsOf<Style> = std::to_array<Word<Style>>({
    {Style::plain, ""},
    {Style::bold, "\033[1m"},
    {Style::dim, "\033[2m"},
    {Style::red, "\033[31m"},
    {Style::green, "\033[32m"},
    {Style::yellow, "\033[33m"},
    {Style::blue, "\033[34m"},
    {Style::magenta, "\033[35m"},
    {Style::cyan, "\033[36m"},
});

namespace {

constexpr std::string_view reset = "\033[0m";

std::string variable(const char* name)
{
    return ProcessFacts::variable(name).value_or("");
}

bool isUTF8Locale()
{
    for (const char* name : {"LC_ALL", "LC_CTYPE", "LANG"}) // the first that is set decides
        if (std::string value = variable(name); !value.empty()) {
            std::ranges::transform(
                value, value.begin(), [](char c) { return c >= 'a' && c <= 'z' ? char(c - 32) : c; });
            return value.contains("UTF-8") || value.contains("UTF8");
        }
    return false;
}

bool knowsSequences()
{
    const std::string kind = variable("TERM");
    return !kind.empty() && kind != "dumb";
}

Terminal terminalAt(int descriptor)
{
    const bool isTerminal = StandardStreams::isTerminal(descriptor);
    // NO_COLOR counts with any value but the empty one.
    const bool hasColours = isTerminal && variable("NO_COLOR").empty() && knowsSequences();
    return {descriptor, isTerminal, hasColours, isUTF8Locale()};
}

} // namespace

Terminal Terminal::standardOutput()
{
    return terminalAt(StandardStreams::output);
}

Terminal Terminal::standardError()
{
    return terminalAt(StandardStreams::error);
}

bool Terminal::canRedraw() const
{
    return isTerminal_ && knowsSequences();
}

std::optional<Terminal::Size> Terminal::size() const
{
    if (!isTerminal_)
        return std::nullopt;
    const Size size = StandardStreams::terminalSize(descriptor_);
    // Serial lines and some terminals in containers tell no size.
    return size.columns == 0 ? Size{.columns = 80, .rows = 24} : size;
}

std::string Terminal::styled(Style style, std::string_view text) const
{
    if (!hasColours_ || style == Style::plain || text.empty())
        return std::string(text);
    return std::string(toWord(style)).append(text).append(reset);
}

void Terminal::write(std::string_view text) const
{
    if (!StandardStreams::writeAll(descriptor_, text))
        throw Closed();
}

void Terminal::rest(std::chrono::milliseconds time) const
{
    if (!StandardStreams::restWhileRead(descriptor_, time))
        throw Closed();
}

bool canAsk()
{
    return StandardStreams::isTerminal(StandardStreams::input);
}

} // namespace veltry
