#pragma once

#include <optional>
#include <string>
#include <string_view>

/// Web addresses as others write them (RFC 3986, with tolerance).
namespace veltry::Address {

/// The text as an absolute address: with a scheme and, for http and https, a host. What may not stand in an address (a
/// blank, "<", a letter beyond ASCII) is percent-encoded; an escape that is there stays. Nothing for any other text.
[[nodiscard]] std::optional<std::string> absolute(std::string_view text);

/// The scheme in lower case, "https"; empty if the text doesn't begin with one.
[[nodiscard]] std::string scheme(std::string_view text);

/// The host in lower case, without user and port; empty if there is none.
[[nodiscard]] std::string host(std::string_view address);

/// The absolute path that a file: address names, its escapes decoded. Nothing for another address, for one that names
/// another host, and where an escape stands for a NUL, which no path can hold.
[[nodiscard]] std::optional<std::string> filePath(std::string_view address);

/// The text as the value of a query item.
[[nodiscard]] std::string queryValue(std::string_view text);

} // namespace veltry::Address
