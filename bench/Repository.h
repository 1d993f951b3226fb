#pragma once

#include <cstdint>
#include <filesystem>
#include <string>
#include <string_view>

namespace veltry::bench {

/// Where the module of that number lies below a project's folder, among a hundred folders.
[[nodiscard]] std::filesystem::path moduleFile(const std::filesystem::path& folder, std::int64_t number);

/// A module's text, of which `mark` changes the line in the middle.
[[nodiscard]] std::string moduleText(std::int64_t number, std::int64_t lines, std::string_view mark = {});

/// Makes a repository with one commit of `files` modules of `lines` lines, whose commits ask nobody for anything.
void makeRepository(const std::filesystem::path& folder, std::int64_t files, std::int64_t lines);

} // namespace veltry::bench
