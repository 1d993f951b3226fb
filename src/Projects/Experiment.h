#pragma once

#include "Base/Date.h"
#include "Base/JSONValue.h"
#include "Base/UUID.h"

#include <optional>
#include <string>

namespace veltry {

/// A node of a project's experiment tree: a git branch with a worktree of its own, a command and notes.
struct Experiment {
    UUID id;
    UUID projectID;
    std::optional<UUID> parentID{}; ///< the node that this one started from; none for a baseline
    std::string slug;               ///< unique within the project
    std::string branch;
    std::string title;      ///< the idea under test
    std::string notes{};    ///< markdown
    std::string runCommand; ///< the shell command of every run of this node
    bool archived = false;
    std::optional<UUID> conversationID{}; ///< may name a conversation that is gone
    Date createdAt{};

    [[nodiscard]] bool isRoot() const { return !parentID; }

    friend bool operator==(const Experiment&, const Experiment&) = default;
};

/// An object with the names of the fields as keys: identifiers as texts, dates as seconds since 2001, absent ones left
/// out.
[[nodiscard]] JSONValue toJSON(const Experiment& experiment);
/// Nothing if a key that toJSON() always writes is missing or of another type.
[[nodiscard]] std::optional<Experiment> experimentFromJSON(const JSONValue& value);

} // namespace veltry
