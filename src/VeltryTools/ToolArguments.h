#pragma once

#include "Base/JSONValue.h"
#include "Experiments/Names.h"

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

/// The readers of a call's arguments. The schemas that agents are shown are not enforced: what counts is told here.
/// Arguments that are no object hold no key.
namespace veltry::ToolArguments {

/// A text with more than white space in it, as it is. Throws LabError "missing_argument".
[[nodiscard]] std::string requiredString(std::string_view key, const JSONValue& arguments);
/// The same, but anything else counts as absent.
[[nodiscard]] std::optional<std::string> optionalString(std::string_view key, const JSONValue& arguments);
/// A number truncated toward zero or a text that is a decimal integer; anything else counts as absent, and so does
/// what doesn't fit 64 bits.
[[nodiscard]] std::optional<std::int64_t> optionalInt(std::string_view key, const JSONValue& arguments);
/// The value is that flag itself, and no text or number that could stand for it.
[[nodiscard]] bool isExactly(bool flag, std::string_view key, const JSONValue& arguments);
/// The node that "experiment_id" names. Throws LabError "missing_argument".
[[nodiscard]] NodeName node(const JSONValue& arguments);
/// The run that "run" names, by a number in either JSON form or by any other text. Throws LabError "missing_argument".
[[nodiscard]] RunName run(const JSONValue& arguments);

} // namespace veltry::ToolArguments
