#include "Experiments/LabError.h"

#include <cstddef>
#include <iterator>
#include <utility>

namespace veltry {

namespace {

constexpr bool standAtTheirPlaces()
{
    for (std::size_t place = 0; place < std::size(LabError::codes); ++place)
        if (LabError::codes[place].code != static_cast<LabError::Code>(place))
            return false;
    return true;
}
static_assert(standAtTheirPlaces());

} // namespace

LabError::LabError(Code what, std::string text) : code(what), message(std::move(text))
{
}

LabError::LabError(Code what, std::string text, Values told)
    : code(what), message(std::move(text)), values(std::move(told))
{
}

LabError LabError::of(const Git::Failure& failure)
{
    return LabError(
        Code::gitFailed, failure.command + " failed: " + failure.output,
        {.command = failure.command, .reason = failure.output});
}

std::string LabError::description() const
{
    return std::string(codes[static_cast<std::size_t>(code)].word) + ": " + message;
}

} // namespace veltry
