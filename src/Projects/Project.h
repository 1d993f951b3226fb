#pragma once

#include "Base/Date.h"
#include "Base/UUID.h"

#include <filesystem>
#include <string>
#include <vector>

namespace veltry {

/// A named set of folders on the person's disk; the first one is the repository that experiments live in.
struct Project {
    UUID id;
    std::string name;
    std::vector<std::filesystem::path> folders; ///< in the person's order; at least one when the project is made
    Date createdAt;
    bool importDismissed = false; ///< the offer to import an agent's past sessions was declined
    bool collapsed = false;       ///< shown without its conversations

    friend bool operator==(const Project&, const Project&) = default;
};

} // namespace veltry
