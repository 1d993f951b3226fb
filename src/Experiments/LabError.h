#pragma once

#include "Base/Error.h"
#include "Experiments/Git.h"

#include <string>
#include <utility>

namespace veltry {

/// A failure that an agent or a person is meant to read: its message says what to do next.
struct LabError : Error {
    LabError(std::string word, std::string text) : code(std::move(word)), message(std::move(text)) {}

    /// How a failure of git reaches an agent: git_failed, with the command and what git said.
    [[nodiscard]] static LabError of(const Git::Failure& failure)
    {
        return {"git_failed", failure.command + " failed: " + failure.output};
    }

    /// "<code>: <message>".
    [[nodiscard]] std::string description() const override { return code + ": " + message; }

    std::string code; ///< lower-case words with underscores; stable
    std::string message;
};

} // namespace veltry
