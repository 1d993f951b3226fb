#pragma once

#include "Base/JSONValue.h"
#include "Experiments/RunLog/Follower.h"
#include "Host/Terminal/Terminal.h"

#include <string>

/// The lines of a run's log as `veltry log` shows them.
namespace veltry::LogText {

/// The number, the local time ("14:05:09", with the date where `now` is another day or nobody looks on a terminal) and
/// the text, made harmless and with the run's colours where the terminal shows colours; the line feed where it ends.
[[nodiscard]] std::string of(const RunLog::Follower::Piece& piece, bool times, const Terminal& terminal, Date now);

/// `number`, `at` and `text`; a part of a long line also tells whether it `begins` and `ends` it.
[[nodiscard]] JSONValue of(const RunLog::Follower::Piece& piece);

} // namespace veltry::LogText
