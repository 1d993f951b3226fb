#include "Experiments/RunLog/Stamp.h"
#include "Property.h"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

using veltry::fuzz::require;
using veltry::RunLog::LineScanner;
using veltry::RunLog::Stamp;

namespace {

/// Where lines begin, when the log comes in pieces of that many bytes.
std::vector<std::uint64_t> starts(std::string_view log, std::size_t pieceSize)
{
    std::vector<std::uint64_t> found;
    LineScanner scanner;
    for (std::size_t at = 0; at < log.size(); at += pieceSize)
        scanner.scan(log.substr(at, pieceSize), [&](std::uint64_t offset) { found.push_back(offset); });
    require(scanner.offset() == log.size(), "all of it was scanned");
    return found;
}

/// Whatever bytes a side file holds, a record that can be read says the same when it is written anew.
void readAndWrite(std::string_view record)
{
    constexpr std::uint64_t longestOffset = 999'999'999'999'999;
    constexpr std::int64_t longestTime = 9'999'999'999'999;
    const std::optional<Stamp> stamp = Stamp::parse(record);
    if (!stamp || stamp->offset > longestOffset || stamp->milliseconds < 0 || stamp->milliseconds > longestTime)
        return;
    std::string written;
    stamp->appendTo(written);
    require(written.size() == Stamp::length, "a record has its fixed length");
    require(Stamp::parse(written) == stamp, "a written record reads back equal");
    require(Stamp::at(stamp->offset, stamp->time()) == *stamp, "a time in milliseconds survives its moment");
}

} // namespace

/// The first byte is the length of the pieces, the rest a log as well as a side file.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    if (size == 0)
        return 0;
    const std::string_view bytes(reinterpret_cast<const char*>(data) + 1, size - 1);
    std::vector<std::uint64_t> wanted;
    for (std::size_t at = 0; at < bytes.size(); ++at)
        if (at == 0 || bytes[at - 1] == '\n')
            wanted.push_back(at);
    require(starts(bytes, bytes.size() + 1) == wanted, "a line begins at the start and behind each line feed");
    require(starts(bytes, std::size_t{data[0]} + 1) == wanted, "cut in pieces it is the same");
    for (std::size_t at = 0; at < bytes.size(); at += Stamp::length)
        readAndWrite(bytes.substr(at, Stamp::length));
    readAndWrite(bytes);
    return 0;
}
