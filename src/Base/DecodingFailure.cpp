#include "Base/DecodingFailure.h"

namespace veltry {

void DecodingFailure::enter(std::string_view step)
{
    if (!path.empty() && !path.starts_with('['))
        path.insert(0, ".");
    path.insert(0, step);
}

std::string DecodingFailure::description() const
{
    return (path.empty() ? "the value" : path) + " " + reason;
}

} // namespace veltry
