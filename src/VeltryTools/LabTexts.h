#pragma once

#include "Experiments/Lab.h"

#include <cstdint>
#include <filesystem>
#include <string>
#include <string_view>

/// The texts that the lab's tools answer with, made from records. Lines are joined by line feeds, with none at the end.
namespace veltry::LabTexts {

/// All nodes that aren't archived, depth first, with their runs and citations. A node whose parent is archived or gone
/// stands at the root. `lab` knows where the worktrees lie.
[[nodiscard]] std::string tree(const Lab& lab, const ExperimentTree& tree);

/// "run 7 of LR 3e-5: succeeded (exit 0) result {...}", on one line.
[[nodiscard]] std::string runLine(const Run& run, std::string_view title);

/// One run in full, with the end of its log.
[[nodiscard]] std::string run(const Run& run, std::string_view title, std::int64_t logLines);

/// The last `count` lines of a log without times or numbers, malformed bytes as U+FFFD; empty if there is none. Reads
/// at most 400 bytes a line and 4096 more, so long lines make it shorter.
[[nodiscard]] std::string logTail(const std::filesystem::path& log, std::int64_t count);

} // namespace veltry::LabTexts
