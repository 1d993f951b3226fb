#include "Base/Address.h"

#include <fmt/format.h>

#include <algorithm>
#include <iterator>

namespace veltry::Address {

namespace {

// RFC 3986's sets; the C library's would ask the locale.
bool isLetter(char c)
{
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
}

bool isDigit(char c)
{
    return c >= '0' && c <= '9';
}

bool isHexDigit(char c)
{
    return isDigit(c) || (c >= 'a' && c <= 'f') || (c >= 'A' && c <= 'F');
}

bool isUnreserved(char c)
{
    return isLetter(c) || isDigit(c) || std::string_view("-._~").contains(c);
}

void appendEncoded(std::string& text, char c)
{
    fmt::format_to(std::back_inserter(text), "%{:02X}", static_cast<unsigned char>(c));
}

std::string lowercased(std::string_view text)
{
    std::string result(text);
    for (char& c : result)
        if (c >= 'A' && c <= 'Z')
            c = static_cast<char>(c - 'A' + 'a');
    return result;
}

} // namespace

std::string scheme(std::string_view text)
{
    const std::size_t end = text.find(':');
    if (end == std::string_view::npos || end == 0 || !isLetter(text.front()))
        return {};
    const std::string_view name = text.substr(0, end);
    const bool isScheme = std::ranges::all_of(
        name, [](char c) { return isLetter(c) || isDigit(c) || std::string_view("+-.").contains(c); });
    return isScheme ? lowercased(name) : "";
}

std::optional<std::string> absolute(std::string_view text)
{
    const std::string kind = scheme(text);
    if (kind.empty() || text.size() == kind.size() + 1)
        return std::nullopt;
    if ((kind == "http" || kind == "https") && host(text).empty())
        return std::nullopt;
    std::string address;
    address.reserve(text.size());
    for (std::size_t index = 0; index < text.size(); ++index) {
        const char c = text[index];
        // What is escaped already stays: escaped once more it would name another page.
        const bool isEscape =
            c == '%' && index + 2 < text.size() && isHexDigit(text[index + 1]) && isHexDigit(text[index + 2]);
        if (isEscape || isUnreserved(c) || std::string_view(":/?#[]@!$&'()*+,;=").contains(c))
            address += c;
        else
            appendEncoded(address, c);
    }
    return address;
}

std::string host(std::string_view address)
{
    std::string_view rest = address.substr(std::min(address.size(), address.find(':') + 1));
    if (!rest.starts_with("//"))
        return {};
    rest.remove_prefix(2);
    rest = rest.substr(0, rest.find_first_of("/?#"));
    // The last "@": a password may contain one, and the host may not.
    if (const std::size_t user = rest.rfind('@'); user != std::string_view::npos)
        rest.remove_prefix(user + 1);
    // The colons of an IPv6 address begin no port.
    if (!rest.starts_with('['))
        rest = rest.substr(0, rest.find(':'));
    return lowercased(rest);
}

std::optional<std::string> filePath(std::string_view address)
{
    if (scheme(address) != "file")
        return std::nullopt;
    const std::string from = host(address);
    if (!from.empty() && from != "localhost")
        return std::nullopt;
    std::string_view rest = address.substr(std::string_view("file:").size());
    if (rest.starts_with("//"))
        rest.remove_prefix(std::min(rest.size(), rest.find('/', 2)));
    rest = rest.substr(0, rest.find_first_of("?#"));
    std::string path;
    for (std::size_t index = 0; index < rest.size(); ++index) {
        const bool isEscape =
            rest[index] == '%' && index + 2 < rest.size() && isHexDigit(rest[index + 1]) && isHexDigit(rest[index + 2]);
        path +=
            isEscape ? static_cast<char>(std::stoi(std::string(rest.substr(index + 1, 2)), nullptr, 16)) : rest[index];
        index += isEscape ? 2 : 0;
    }
    if (!path.starts_with('/') || path.contains('\0'))
        return std::nullopt;
    return path;
}

std::string queryValue(std::string_view text)
{
    std::string value;
    value.reserve(text.size());
    for (const char c : text) {
        // "+" is a blank to many servers, and "&", "=" and ";" end an item.
        if (isUnreserved(c) || std::string_view("!$'()*,:@/?").contains(c))
            value += c;
        else
            appendEncoded(value, c);
    }
    return value;
}

} // namespace veltry::Address
