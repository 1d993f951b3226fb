#include "Base/UUID.h"

#include <uuid/uuid.h>

#include <cstring>

namespace veltry {

namespace {

constexpr std::size_t textLength = 36;

constexpr bool isHyphenPlace(std::size_t index)
{
    return index == 8 || index == 13 || index == 18 || index == 23;
}

constexpr int hexValue(char c)
{
    if (c >= '0' && c <= '9')
        return c - '0';
    if (c >= 'a' && c <= 'f')
        return c - 'a' + 10;
    if (c >= 'A' && c <= 'F')
        return c - 'A' + 10;
    return -1;
}

} // namespace

UUID UUID::random()
{
    UUID id;
    uuid_generate_random(id.bytes_.data());
    return id;
}

// By hand, since the library's own reader goes through sscanf, and a tree of 100,000 runs reads 300,000 identifiers.
std::optional<UUID> UUID::parse(std::string_view text)
{
    if (text.size() != textLength)
        return std::nullopt;
    UUID id;
    std::size_t digit = 0;
    for (std::size_t index = 0; index < textLength; ++index) {
        if (isHyphenPlace(index)) {
            if (text[index] != '-')
                return std::nullopt;
            continue;
        }
        int value = hexValue(text[index]);
        if (value < 0)
            return std::nullopt;
        std::uint8_t& byte = id.bytes_[digit / 2];
        byte = static_cast<std::uint8_t>((byte << 4) | value);
        ++digit;
    }
    return id;
}

std::string UUID::text() const
{
    static constexpr char digits[] = "0123456789ABCDEF";
    std::string text;
    text.reserve(textLength);
    for (std::uint8_t byte : bytes_) {
        if (isHyphenPlace(text.size()))
            text += '-';
        text += digits[byte >> 4];
        text += digits[byte & 15];
    }
    return text;
}

} // namespace veltry

std::size_t std::hash<veltry::UUID>::operator()(const veltry::UUID& id) const noexcept
{
    std::size_t value = 0;
    // Random bytes need no mixing.
    std::memcpy(&value, id.bytes_.data(), sizeof value);
    return value;
}
