#include "Base/TextMarks.h"

#include "Base/Text.h"

#include <utf8proc.h>

#include <algorithm>
#include <array>

namespace veltry::text {

std::string withoutMarks(std::string_view text)
{
    constexpr int mostScalars = 32; // that one decomposes to; Unicode has 18 at most
    // NOLINTNEXTLINE(clang-analyzer-optin.core.EnumCastOutOfRange): the library's options are bits of its enumeration
    constexpr auto options = static_cast<utf8proc_option_t>(UTF8PROC_DECOMPOSE | UTF8PROC_STRIPMARK);
    std::u32string result;
    for (const char32_t scalar : scalars(text)) {
        std::array<utf8proc_int32_t, mostScalars> parts{};
        int lastClass = 0;
        const utf8proc_ssize_t count = utf8proc_decompose_char(
            static_cast<utf8proc_int32_t>(scalar), parts.data(), mostScalars, options, &lastClass);
        for (utf8proc_ssize_t index = 0; index < std::min<utf8proc_ssize_t>(count, mostScalars); ++index)
            result += static_cast<char32_t>(parts.at(static_cast<std::size_t>(index)));
    }
    return fromScalars(result);
}

} // namespace veltry::text
