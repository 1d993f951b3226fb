#pragma once

#include "Base/Error.h"

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

} // namespace veltry
