#include "Platform/SystemError.h"

#include <system_error>
#include <utility>

namespace veltry {

SystemError::SystemError(std::string what, int errorNumber) : attempt(std::move(what)), code(errorNumber) {}

std::string SystemError::description() const
{
    return attempt + ": " + std::generic_category().message(code);
}

} // namespace veltry
