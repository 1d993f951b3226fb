#include "Host/Doctor/Finding.h"

#include "Base/Text.h"
#include "Base/Words.h"
#include "Host/Terminal/Wrapping.h"

namespace veltry {

namespace {

constexpr std::size_t widestLine = 110; // longer lines are hard to read

struct Mark {
    Finding::Level value;
    std::string_view word;
    std::string_view sign;
    std::string_view plain;
    Style style;
};

} // namespace

template <>
constexpr auto wordsOf<Finding::Level> = std::to_array<Mark>({
    {Finding::Level::good, "good", "\u2713", "+", Style::green},
    {Finding::Level::absent, "absent", "-", "-", Style::dim},
    {Finding::Level::advice, "advice", "!", "!", Style::yellow},
    {Finding::Level::wrong, "wrong", "\u2717", "x", Style::red},
});

namespace {

/// On lines of at most `width` columns, all but the first indented. Paths stay whole.
std::string block(std::string_view words, std::size_t width, std::size_t indent)
{
    const std::vector<std::string> lines = wrapped(text::oneLine(words), width, LongWords::whole);
    return text::joined(lines, "\n" + std::string(indent, ' '));
}

} // namespace

std::string drawn(std::span<const Finding> findings, const Terminal& terminal)
{
    std::size_t widest = 0;
    for (const Finding& finding : findings)
        widest = std::max(widest, text::columns(finding.subject));
    const std::size_t indent = 2 + widest + 2;
    std::size_t columns = widestLine;
    if (const std::optional<Terminal::Size> size = terminal.size())
        columns = std::min(columns, size->columns);
    const std::size_t width = columns > indent + 20 ? columns - indent : 20;
    std::string result;
    for (const Finding& finding : findings) {
        const Mark& mark = rowOf(finding.level);
        const std::string blanks(widest - text::columns(finding.subject) + 2, ' ');
        result += terminal.styled(mark.style, terminal.isUTF8() ? mark.sign : mark.plain) + " " +
                  terminal.styled(Style::bold, finding.subject) + blanks + block(finding.text, width, indent) + "\n";
        if (!finding.advice.empty())
            result.append(indent, ' ')
                .append(terminal.styled(Style::cyan, block(finding.advice, width, indent)))
                .append("\n");
    }
    return result;
}

JSONValue toJSON(const Finding& finding)
{
    JSONValue::Object members{{"subject", finding.subject}, {"level", toWord(finding.level)}, {"text", finding.text}};
    if (!finding.advice.empty())
        members.emplace("advice", finding.advice);
    return members;
}

} // namespace veltry
