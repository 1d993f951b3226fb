#pragma once

#include "Base/UUID.h"
#include "Projects/ProjectStore.h"

#include <cstddef>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>

/// Carries one run from its queued row to its final state, in a process of its own, so that the run outlives whoever
/// asked for it. docs/run-folder.md tells what it leaves on disk.
namespace veltry::Supervisor {

/// Tells a run's processes, in their environment, where its result file belongs; so it also tells them apart.
inline constexpr const char* resultVariable = "HARROWICK_RESULT_PATH";

/// Bytes that a run's `result.json` may have.
inline constexpr std::size_t resultLimit = 65536;

/// Starts the run's command in a login shell, waits for it, and records how it ended. Blocks the calling thread for the
/// length of the run; processes that the shell leaves behind in the background are not waited for.
///
/// Returns at once, and touches no file, if there is no such run or it is not queued; and if another supervisor holds
/// the run's lock. Throws only the store's errors. The lock is held until the end; if this process dies before, it is
/// free, the command goes on alone, and the row stays as it is until somebody looks for the lock.
void supervise(const UUID& id, ProjectStore& store);

/// True if a supervisor holds the run's lock now.
[[nodiscard]] bool isAlive(const Run& run) noexcept;
/// When the run's first supervisor made the file of the lock, in seconds since 1970. Nothing if it isn't there.
[[nodiscard]] std::optional<double> begunAt(const Run& run) noexcept;

/// The text of the run's result file without white space at both ends; nothing if there is none or it can't be read.
/// One that isn't a JSON object, or has more than `resultLimit` bytes, gives nothing as well, and a line in the log
/// says so.
[[nodiscard]] std::optional<std::string> readResult(const Run& run);

/// Adds a line of ours to a log, set apart from an unfinished last line of the run's. Makes the log if it can't be
/// opened. A failure is not reported.
void note(std::string_view line, const std::filesystem::path& log) noexcept;

} // namespace veltry::Supervisor
