#include "Host/Terminal/Terminal.h"

#include "Base/Words.h"
#include "Platform/ProcessFacts.h"
#include "Platform/SystemError.h"

#include <poll.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>

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
    const bool isTerminal = ::isatty(descriptor) != 0;
    const bool hasColours = isTerminal && variable("NO_COLOR").empty() && knowsSequences();
    return {descriptor, isTerminal, hasColours, isUTF8Locale()};
}

} // namespace

Terminal Terminal::standardOutput()
{
    return terminalAt(STDOUT_FILENO);
}

Terminal Terminal::standardError()
{
    return terminalAt(STDERR_FILENO);
}

bool Terminal::canRedraw() const
{
    return isTerminal_ && knowsSequences();
}

std::optional<Terminal::Size> Terminal::size() const
{
    if (!isTerminal_)
        return std::nullopt;
    winsize size{};
    if (::ioctl(descriptor_, TIOCGWINSZ, &size) != 0 || size.ws_col == 0)
        return Size{.columns = 80, .rows = 24};
    return Size{.columns = size.ws_col, .rows = size.ws_row};
}

std::string Terminal::styled(Style style, std::string_view text) const
{
    if (!hasColours_ || style == Style::plain || text.empty())
        return std::string(text);
    return std::string(toWord(style)).append(text).append(reset);
}

void Terminal::write(std::string_view text) const
{
    while (!text.empty()) {
        const ssize_t written = ::write(descriptor_, text.data(), text.size());
        if (written >= 0) {
            text.remove_prefix(static_cast<std::size_t>(written));
        } else if (errno == EPIPE) {
            throw Closed();
        } else if (errno == EAGAIN) { // the other side may share the descriptor and have set it so
            pollfd ready{.fd = descriptor_, .events = POLLOUT, .revents = 0};
            ::poll(&ready, 1, -1);
        } else if (errno != EINTR) {
            throw SystemError("could not write the output", errno);
        }
    }
}

void Terminal::rest(std::chrono::milliseconds time) const
{
    pollfd reader{.fd = descriptor_, .events = 0, .revents = 0};
    if (::poll(&reader, 1, static_cast<int>(time.count())) > 0)
        throw Closed();
}

bool canAsk()
{
    return ::isatty(STDIN_FILENO) != 0;
}

} // namespace veltry
