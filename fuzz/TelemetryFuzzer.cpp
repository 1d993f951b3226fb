#include "../tests/Support/PlainTelemetry.h"
#include "Experiments/Telemetry/Telemetry.h"
#include "Property.h"

#include <cstddef>
#include <cstdint>
#include <string_view>

using veltry::Telemetry;
using veltry::fuzz::require;

namespace {

/// What comes of a file that grows by that many bytes at a time.
Telemetry inPieces(std::string_view file, std::size_t pieceSize, bool finished)
{
    Telemetry telemetry;
    std::size_t taken = 0;
    for (std::size_t end = 0; end < file.size();) {
        end += std::min(pieceSize, file.size() - end);
        taken += telemetry.take(file.substr(taken, end - taken), false);
    }
    telemetry.take(file.substr(taken), finished);
    return telemetry;
}

} // namespace

/// The first byte is the length of the pieces, and its lowest bit whether the run has finished.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    if (size == 0)
        return 0;
    const std::string_view file(reinterpret_cast<const char*>(data) + 1, size - 1);
    const bool finished = (data[0] & 1) != 0;
    Telemetry whole;
    const std::size_t taken = whole.take(file, finished);
    require(taken == file.size() || (!finished && taken == file.rfind('\n') + 1), "all lines are taken");
    require(inPieces(file, std::size_t{data[0]} + 1, finished) == whole, "cut in pieces it is the same");
    require(veltry::test::PlainTelemetry(file, finished).isSame(whole), "a plain reading gives the same");
    return 0;
}
