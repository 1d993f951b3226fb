#pragma once

#include "Literature/PaperSearch.h"
#include "Projects/Paper.h"

#include <cstddef>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

/// The texts that the paper tools answer with, made from records. Lines are joined by line feeds, with none at the end.
namespace veltry::PaperTexts {

/// One paper of a list.
struct Entry {
    Paper paper;
    bool saved = false;                     ///< to the project
    std::vector<CitingExperiment> citing{}; ///< the nodes to name below it
};

/// The entries, numbered from 1, with an empty line between two.
[[nodiscard]] std::string list(const std::vector<Entry>& entries);

/// One paper in full; `file` is its PDF, if it was downloaded.
[[nodiscard]] std::string paper(const Paper& paper, bool saved, const std::optional<std::filesystem::path>& file);

/// The first names, and how many more there are.
[[nodiscard]] std::string authors(const Paper& paper, std::size_t limit);

/// The text if it has at most `count` characters; otherwise what is before the last blank of the first `count`, and
/// "…".
[[nodiscard]] std::string cut(std::string_view text, std::size_t count);

} // namespace veltry::PaperTexts
