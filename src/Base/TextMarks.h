#pragma once

#include <string>
#include <string_view>

namespace veltry::text {

/// Letters without their accents and other marks: "Müller" as "Muller". Malformed UTF-8 counts as U+FFFD.
[[nodiscard]] std::string withoutMarks(std::string_view text);

} // namespace veltry::text
