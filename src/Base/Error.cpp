#include "Base/Error.h"

namespace veltry {

const char* Error::what() const noexcept
{
    try {
        what_ = description();
        return what_.c_str();
    } catch (...) { // out of memory, and what() has to answer all the same
        return "an error that could not be described";
    }
}

std::string describe(const std::exception& error)
{
    if (const auto* ours = dynamic_cast<const Error*>(&error))
        return ours->description();
    return error.what();
}

} // namespace veltry
