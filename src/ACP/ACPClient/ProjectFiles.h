#pragma once

#include "ACP/ACPClient/TextFiles.h"

#include <cstdint>
#include <filesystem>
#include <optional>
#include <span>
#include <string>
#include <string_view>

/// The text files that an agent may reach: those inside the folders of its session.
///
/// A path is absolute and holds no "..". It is tried in the additional folders in order, then in the first one, whose
/// refusal counts. Links are followed as long as they stay inside; FolderRoot says what is promised against links that
/// change meanwhile. Throws JSONRPCError, as the agent is answered.
namespace veltry::ProjectFiles {

/// The whole file, which must be UTF-8, or the lines asked for.
[[nodiscard]] std::string read(std::span<const std::filesystem::path> roots, const ReadTextFileParams& file);

/// Replaces the file in one step. It may be new, its folder not.
void write(std::span<const std::filesystem::path> roots, const WriteTextFileParams& file);

/// `limit` lines from `line` on, which is counted from 1; empty where nothing is left. A text that ends in a line feed
/// has one more, empty, line. With neither the text as it stands.
[[nodiscard]] std::string excerpt(
    std::string text, const std::optional<std::int64_t>& line, const std::optional<std::int64_t>& limit);

} // namespace veltry::ProjectFiles
