#include "ACP/ACPClient/ShellEnvironment.h"
#include "ACP/ACPClient/ShellEnvironmentReader.h"
#include "Base/Text.h"
#include "Property.h"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

using veltry::ShellEnvironmentReader;
using veltry::fuzz::require;
using Environment = veltry::ChildProcess::Environment;

namespace {

struct Outcome {
    bool complete;
    std::optional<Environment> environment; ///< nothing where it is unreadable

    bool operator==(const Outcome&) const = default;
};

Outcome read(std::string_view output, std::size_t chunk)
{
    ShellEnvironmentReader reader;
    for (std::size_t at = 0; at < output.size(); at += chunk)
        reader.add(output.substr(at, chunk));
    Outcome outcome{.complete = reader.isComplete(), .environment = std::nullopt};
    try {
        outcome.environment = reader.environment();
    } catch (const veltry::ShellEnvironment::Failure& failure) {
        using Kind = veltry::ShellEnvironment::Failure::Kind;
        require(failure.kind == Kind::unreadable, "nothing else is wrong with an output");
    }
    return outcome;
}

std::string printed(const Environment& environment)
{
    std::string output = "noise" + std::string(1, '\0') + std::string(ShellEnvironmentReader::startMarker) + '\0';
    for (const auto& [name, value] : environment)
        output += name + '=' + value + '\0';
    return output + std::string(ShellEnvironmentReader::endMarker);
}

} // namespace

/// The first byte is the size of the chunks, the rest a shell's output. Wherever it is cut, the same comes of it; the
/// marker of the end is found wherever it stands; and what was read is read again as it is.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    if (size == 0)
        return 0;
    const std::string_view output(reinterpret_cast<const char*>(data + 1), size - 1);
    const Outcome whole = read(output, size);
    require(read(output, data[0] + 1U) == whole, "cut in pieces is the same");
    require(
        whole.complete == (output.find(ShellEnvironmentReader::endMarker) != std::string_view::npos),
        "the end is seen where it stands");
    if (!whole.environment)
        return 0;
    for (const auto& [name, value] : *whole.environment) {
        require(!name.empty() && name.find('=') == std::string::npos, "a name is one");
        require(veltry::text::isValidUTF8(name) && veltry::text::isValidUTF8(value), "all is UTF-8");
    }
    require(read(printed(*whole.environment), 1).environment == whole.environment, "written and read again");
    return 0;
}
