#pragma once

#include <array>
#include <compare>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>

namespace veltry {

/// An identifier of 128 bits (RFC 4122). Its text is always the canonical 8-4-4-4-12 form in upper case, since
/// identifiers are compared as texts in SQL, in folder names and on the command line.
class UUID {
public:
    /// A new one from the system's random source (version 4).
    [[nodiscard]] static UUID random();

    /// Reads the canonical form in any letter case; nothing for any other text.
    [[nodiscard]] static std::optional<UUID> parse(std::string_view text);

    /// 36 characters, upper case.
    [[nodiscard]] std::string text() const;

    friend auto operator<=>(const UUID&, const UUID&) = default;

private:
    friend struct std::hash<UUID>;
    std::array<std::uint8_t, 16> bytes_{};
};

} // namespace veltry

template <>
struct std::hash<veltry::UUID> {
    std::size_t operator()(const veltry::UUID& id) const noexcept;
};
