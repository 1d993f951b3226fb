#pragma once

#include "Base/Error.h"
#include "Base/JSONValue.h"

#include <string>
#include <string_view>
#include <utility>

namespace veltry {

/// A JSON value isn't the record that it was read as. `path` leads to the spot, as in "options[1].kind", and is empty
/// for the value itself.
struct DecodingFailure : Error {
    explicit DecodingFailure(std::string what) : reason(std::move(what)) {}

    /// Puts a step in front of the path: a key, or a position as "[1]".
    void enter(std::string_view step);

    /// "<path> <reason>", as in "toolCall.toolCallId is missing".
    [[nodiscard]] std::string description() const override;

    std::string path;
    std::string reason;
};

/// Reads a record of the Agent Client Protocol. Keys that the record doesn't name are ignored, and an optional field
/// is absent where its key is missing or holds null. Throws DecodingFailure where a field doesn't read and its record
/// doesn't say that it may. Defined for the records of this folder.
template <typename Record>
[[nodiscard]] Record decoded(const JSONValue& value);

/// The record as JSON; optional fields that are absent are left out. Defined for the records of this folder, but for
/// the answers that only ever come in.
template <typename Record>
[[nodiscard]] JSONValue encoded(const Record& record);

} // namespace veltry
