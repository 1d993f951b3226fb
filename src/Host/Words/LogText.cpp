#include "Host/Words/LogText.h"

#include "Host/Terminal/Harmless.h"
#include "Host/Terminal/Times.h"

#include <fmt/format.h>

namespace veltry::LogText {

namespace {

constexpr std::size_t dateLength = 11; // "2026-03-01 "

std::string time(const RunLog::Line& line, const Terminal& terminal, Date now)
{
    const std::string today = Times::local(now);
    std::string moment = line.at ? Times::local(*line.at) : std::string();
    if (!terminal.isTerminal())
        return fmt::format("{:<{}}", moment, today.size());
    if (moment.empty() || moment.substr(0, dateLength) == today.substr(0, dateLength))
        return fmt::format("{:<{}}", moment.empty() ? "" : moment.substr(dateLength), today.size() - dateLength);
    return moment;
}

} // namespace

std::string of(const RunLog::Follower::Piece& piece, bool times, const Terminal& terminal, Date now)
{
    std::string text;
    if (piece.begins) {
        std::string before = fmt::format("{:>6}  ", piece.line.number ? std::to_string(*piece.line.number) : "");
        if (times)
            before += time(piece.line, terminal, now) + "  ";
        text = terminal.styled(Style::dim, before);
    }
    text += harmless(piece.line.text, terminal.hasColours());
    if (piece.ends)
        text += '\n';
    return text;
}

JSONValue of(const RunLog::Follower::Piece& piece)
{
    JSONValue::Object object{{"text", piece.line.text}};
    if (piece.line.number)
        object["number"] = *piece.line.number;
    if (piece.line.at)
        object["at"] = piece.line.at->iso8601();
    if (!piece.begins || !piece.ends) {
        object["begins"] = piece.begins;
        object["ends"] = piece.ends;
    }
    return object;
}

} // namespace veltry::LogText
