#include "Base/JSONValue.h"
#include "Base/Text.h"
#include "Property.h"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>

using veltry::JSONValue;
using veltry::fuzz::require;

/// What can be read is written as one line of UTF-8 that reads back equal, in every form.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    const std::optional<JSONValue> value = JSONValue::parseIfValid({reinterpret_cast<const char*>(data), size});
    if (!value)
        return 0;
    const std::string text = value->text();
    require(text.find('\n') == std::string::npos, "the text is one line");
    require(veltry::text::isValidUTF8(text), "the text is UTF-8");
    require(JSONValue::parse(text) == *value, "the text reads back equal");
    require(JSONValue::parse(text).text() == text, "equal documents have equal texts");
    require(JSONValue::parse(value->text(JSONValue::Slashes::escaped)) == *value, "escaped slashes read back equal");
    require(JSONValue::parse(value->prettyText()) == *value, "the pretty text reads back equal");
    return 0;
}
