#include "Experiments/RunLog/StampWriter.h"

#include "Platform/SystemError.h"

namespace veltry::RunLog {

namespace {

constexpr std::size_t enough = 2000 * Stamp::length;

} // namespace

StampWriter::StampWriter(const std::filesystem::path& sideFile, Files::Purpose purpose)
    : file_(Files::open(sideFile, purpose)), name_(sideFile.string())
{
    held_.reserve(enough);
}

void StampWriter::add(const Stamp& stamp)
{
    stamp.appendTo(held_);
    if (held_.size() >= enough)
        flush();
}

void StampWriter::flush() noexcept
{
    try {
        Files::writeAll(file_, held_, name_);
    } catch (const SystemError&) { // a full disk, most often
        if (!failure_)
            failure_ = std::current_exception();
        // Part of a record would shift all that follow it.
        Files::truncate(file_, Files::size(file_) / Stamp::length * Stamp::length);
    }
    held_.clear();
}

void StampWriter::throwFailure() const
{
    if (failure_)
        std::rethrow_exception(failure_);
}

} // namespace veltry::RunLog
