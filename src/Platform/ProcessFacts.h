#pragma once

#include "Platform/ChildProcess.h"

#include <filesystem>
#include <optional>
#include <string>

/// What this process knows of itself.
namespace veltry::ProcessFacts {

/// The absolute path of the running executable; if the system doesn't tell, the name that it was started by.
[[nodiscard]] std::filesystem::path executable();

[[nodiscard]] ProcessID id() noexcept;

/// A copy of the whole environment.
[[nodiscard]] ChildProcess::Environment environment();
/// One variable, or nothing if it isn't set. An empty one is set.
[[nodiscard]] std::optional<std::string> variable(const std::string& name);

} // namespace veltry::ProcessFacts
