#include "Config/TOML.h"
#include "Config/VeltrySettings.h"
#include "Property.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

using veltry::TOML;
using veltry::VeltrySettings;
using veltry::fuzz::require;

namespace {

/// True for "<sentence> on line <n>" with a line that the text has.
bool namesALine(std::string_view message, std::string_view text)
{
    constexpr std::string_view before = " on line ";
    const std::size_t place = message.rfind(before);
    if (place == std::string_view::npos || place == 0)
        return false;
    const std::string number(message.substr(place + before.size()));
    const bool isNumber = !number.empty() && number.size() < 10 &&
                          std::ranges::all_of(number, [](char c) { return c >= '0' && c <= '9'; });
    return isNumber && std::stol(number) >= 1 && std::stol(number) <= std::ranges::count(text, '\n') + 1;
}

std::optional<TOML::Table> parsed(std::string_view text)
{
    try {
        return TOML::parse(text);
    } catch (const TOML::Failure& failure) {
        require(namesALine(failure.message, text), "a refusal names its line");
        return std::nullopt;
    }
}

} // namespace

/// Any text is read or refused with its line, and writing a setting into any text twice is writing it once.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    const std::string_view text(reinterpret_cast<const char*>(data), size);
    if (const std::optional<TOML::Table> document = parsed(text)) {
        require(TOML::parse(text) == *document, "reading is repeatable");
        static_cast<void>(VeltrySettings::read(text));
    }
    const std::string once = VeltrySettings::setting(VeltrySettings::Key::maxRuns, 7, text);
    require(VeltrySettings::setting(VeltrySettings::Key::maxRuns, 7, once) == once, "a second writing changes nothing");
    return 0;
}
