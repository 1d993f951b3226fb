#include "Host/Terminal/Harmless.h"

#include "Base/Text.h"

#include <algorithm>

namespace veltry {

namespace {

constexpr char escape = '\033';
constexpr std::size_t longestColour = 64; // bytes of its parameters; nobody means more

bool isColour(std::string_view parameters)
{
    return parameters.size() <= longestColour &&
           std::ranges::all_of(parameters, [](char c) { return (c >= '0' && c <= '9') || c == ';' || c == ':'; });
}

/// Walks over one line (ECMA-48: control sequences, control strings).
class Cursor {
public:
    Cursor(std::string_view line, bool colours) : line_(line), colours_(colours) {}

    std::string run()
    {
        while (at_ < line_.size()) {
            if (line_[at_] == escape) {
                escapeSequence();
            } else {
                const std::size_t end = std::min(line_.find(escape, at_), line_.size());
                plain(line_.substr(at_, end - at_));
                at_ = end;
            }
        }
        // A line that leaves a colour on would colour what follows.
        if (hasColour_)
            result_ += "\033[0m";
        return std::move(result_);
    }

private:
    void plain(std::string_view text)
    {
        for (std::size_t start = 0; start <= text.size();) {
            const std::size_t end = std::min(text.find_first_of("\t\b", start), text.size());
            result_ += text::oneLine(text.substr(start, end - start));
            if (end < text.size() && text[end] == '\t')
                result_ += '\t';
            start = end + 1;
        }
    }

    void escapeSequence()
    {
        const char kind = at_ + 1 < line_.size() ? line_[at_ + 1] : '\0';
        at_ = std::min(at_ + 2, line_.size());
        if (kind == '[')
            controlSequence();
        else if (kind == ']' || kind == 'P' || kind == 'X' || kind == '^' || kind == '_')
            controlString();
        else if (kind >= ' ' && kind <= '/') // selects a character set: intermediate bytes, then one more
            at_ = std::min(line_.find_first_not_of(" !\"#$%&'()*+,-./", at_), line_.size() - 1) + 1;
    }

    void controlSequence()
    {
        const std::size_t start = at_;
        while (at_ < line_.size() && line_[at_] >= ' ' && line_[at_] <= '?')
            ++at_;
        if (at_ == line_.size() || line_[at_] < '@' || line_[at_] > '~')
            return; // no end: what stands here is text again
        const std::string_view parameters = line_.substr(start, at_ - start);
        const bool isSGR = line_[at_] == 'm';
        ++at_;
        if (isSGR && colours_ && isColour(parameters)) {
            result_.append("\033[").append(parameters).append("m");
            hasColour_ = true;
        }
    }

    /// Up to its end, BEL or ESC and a backslash, or to the end of the line.
    void controlString()
    {
        for (; at_ < line_.size(); ++at_) {
            if (line_[at_] == '\a') {
                ++at_;
                return;
            }
            if (line_[at_] == escape && at_ + 1 < line_.size() && line_[at_ + 1] == '\\') {
                at_ += 2;
                return;
            }
        }
    }

    std::string_view line_;
    bool colours_;
    std::size_t at_ = 0;
    std::string result_;
    bool hasColour_ = false;
};

} // namespace

std::string harmless(std::string_view line, bool colours)
{
    while (line.ends_with('\r'))
        line.remove_suffix(1);
    // A progress bar writes its line over and over; what a terminal would show in the end is the last of it.
    if (const std::size_t last = line.rfind('\r'); last != std::string_view::npos)
        line.remove_prefix(last + 1);
    return Cursor(line, colours).run();
}

} // namespace veltry
