#pragma once

#include <optional>

/// What the system does with processes whose person has logged out.
namespace veltry::LoginFacts {

struct Logins {
    bool lingers = false;       ///< this person's processes may stay without a login
    bool endsProcesses = false; ///< those of a login end with it, where they don't linger
    bool isInService = false;   ///< we run in the person's own service manager, which ends with the last login
};

/// Nothing where no login manager looks after processes.
[[nodiscard]] std::optional<Logins> logins();

} // namespace veltry::LoginFacts
