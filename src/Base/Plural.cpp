#include "Base/Plural.h"

namespace veltry {

std::string counted(std::int64_t count, std::string_view one, std::string_view many)
{
    return std::to_string(count).append(" ").append(plural(count, one, many));
}

} // namespace veltry
