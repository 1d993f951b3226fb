#pragma once

#include "Base/JSONValue.h"

#include <cstdint>
#include <string_view>

/// The JSON of the service's answers, in which each work's "abstract_inverted_index" is replaced by the text of the
/// abstract, or by null where it names no word: as a document the index, a number for each word, would take most of the
/// time and of the memory. Both readers throw PaperSearchError (unreadable) for what isn't JSON, for an index of
/// another form and for one that repeats its words beyond all measure.
namespace veltry::OpenAlexDocument {

[[nodiscard]] JSONValue page(std::string_view body); ///< works in the list "results"
[[nodiscard]] JSONValue work(std::string_view body); ///< the document is the work

/// Throws PaperSearchError (unreadable).
[[noreturn]] void unreadable();
/// A whole number, or unreadable.
[[nodiscard]] std::int64_t integerOf(const JSONValue& value);

} // namespace veltry::OpenAlexDocument
