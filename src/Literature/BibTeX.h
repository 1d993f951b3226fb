#pragma once

#include "Projects/Paper.h"

#include <span>
#include <string>
#include <vector>

/// Papers as the entries of a bibliography in BibTeX's form, in UTF-8.
namespace veltry::BibTeX {

/// A key for each paper, like "vaswani2017attention": ASCII letters and digits, no two alike. Where the words give the
/// same, later ones get "b", "c" and so on: papers that come later change none before them.
[[nodiscard]] std::vector<std::string> keys(std::span<const Paper> papers);

/// An entry for each paper, with an empty line between two. Whatever stands in a field, the entry stays well formed,
/// and TeX prints it as it is.
[[nodiscard]] std::string entries(std::span<const Paper> papers);

} // namespace veltry::BibTeX
