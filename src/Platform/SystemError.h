#pragma once

#include "Base/Error.h"

#include <cerrno>
#include <string>

namespace veltry {

/// A failure of the operating system: what was tried, on what, and why it failed.
struct SystemError : Error {
    /// `what` is a clause such as "could not open /tmp/log"; `errorNumber` as errno has it, read at once by default.
    explicit SystemError(std::string what, int errorNumber = errno);

    /// "<what>: <the system's words>".
    [[nodiscard]] std::string description() const override;

    std::string attempt;
    int code;
};

} // namespace veltry
