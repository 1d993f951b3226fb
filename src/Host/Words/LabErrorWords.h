#pragma once

#include "Experiments/LabError.h"

#include <string>

/// What a person is told of a failure of the lab. Its message is an agent's, and names the tools by which that goes on.
namespace veltry::LabErrorWords {

/// A sentence or two that say what to do next, by commands.
[[nodiscard]] std::string forPerson(const LabError& error);

} // namespace veltry::LabErrorWords
