#pragma once

#include "Literature/PaperSearch.h"

#include <optional>
#include <string_view>

/// Reads the service's answers. Pure; the memory that they take grows with the answer's length alone. A required member
/// that is missing or one of another type, anywhere in what is read, makes the whole answer unreadable: both throw
/// PaperSearchError (unreadable).
namespace veltry::OpenAlexAnswer {

/// A page of works. Works without a title are left out, and of those whose titles hold the same letters and numbers the
/// first stays; it takes the PDF of a later one if it has none.
[[nodiscard]] PaperPage page(std::string_view body);

/// One work; nothing if it has no title.
[[nodiscard]] std::optional<Paper> work(std::string_view body);

} // namespace veltry::OpenAlexAnswer
