#pragma once

#include "Base/Error.h"

#include <string>

namespace veltry {

/// What a command won't or can't do, in one sentence or two for the person: what was wrong, with which value, what to
/// do. Exit status 1.
struct Refusal : Error {
    explicit Refusal(std::string text) : message(std::move(text)) {}
    [[nodiscard]] std::string description() const override { return message; }
    std::string message;
};

/// A command line that means nothing. Exit status 2.
struct UsageError : Refusal {
    using Refusal::Refusal;
};

} // namespace veltry
