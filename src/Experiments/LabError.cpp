#include "Experiments/LabError.h"

#include <utility>

namespace veltry {

LabError::LabError(Code what, std::string text) : code(what), message(std::move(text)) {}

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
    return std::string(toWord(code)) + ": " + message;
}

} // namespace veltry
