#include "ACP/ACPClient/ShellEnvironmentReader.h"

#include "ACP/ACPClient/ShellEnvironment.h"
#include "Base/Text.h"

namespace veltry {

namespace {

void readEntry(std::string_view piece, ChildProcess::Environment& environment)
{
    // The end marker has no NUL of its own, so it may be followed by what a profile prints at the end.
    if (piece.starts_with(ShellEnvironmentReader::endMarker))
        return;
    const std::size_t equals = piece.find('=');
    if (equals == std::string_view::npos || equals == 0)
        return;
    environment.insert_or_assign(text::repaired(piece.substr(0, equals)), text::repaired(piece.substr(equals + 1)));
}

} // namespace

void ShellEnvironmentReader::add(std::string_view chunk)
{
    for (std::size_t end = chunk.find('\0'); end != std::string_view::npos; end = chunk.find('\0')) {
        extendPiece(chunk.substr(0, end));
        endPiece();
        chunk.remove_prefix(end + 1);
    }
    extendPiece(chunk);
}

ChildProcess::Environment ShellEnvironmentReader::environment() const
{
    ChildProcess::Environment result = environment_;
    if (started_)
        readEntry(piece_, result); // a shell that ended early
    else if (pieceIsCut_ || piece_ != startMarker)
        throw ShellEnvironment::Failure(ShellEnvironment::Failure::Kind::unreadable);
    return result;
}

void ShellEnvironmentReader::extendPiece(std::string_view part)
{
    // A marker may lie across two chunks, so the search begins before the new one.
    constexpr std::size_t overlap = endMarker.size() - 1;
    const std::size_t from = piece_.size() > overlap ? piece_.size() - overlap : 0;
    piece_ += part;
    complete_ = complete_ || piece_.find(endMarker, from) != std::string::npos;
    // A profile may print without end before our command runs: only what may begin a marker is kept of that.
    if (!started_ && piece_.size() > endMarker.size()) { // which is longer than the start marker
        piece_.erase(0, piece_.size() - overlap);
        pieceIsCut_ = true;
    }
}

void ShellEnvironmentReader::endPiece()
{
    if (started_)
        readEntry(piece_, environment_);
    else
        started_ = !pieceIsCut_ && piece_ == startMarker;
    piece_.clear();
    pieceIsCut_ = false;
}

} // namespace veltry
