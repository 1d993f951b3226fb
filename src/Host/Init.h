#pragma once

#include "Base/Error.h"

#include <filesystem>
#include <iosfwd>
#include <optional>
#include <string>

/// `veltry init`: makes a project of a git repository and says how an agent is attached to it.
namespace veltry::Init {

struct Options {
    std::filesystem::path folder = ".";
    std::optional<std::string> name;               ///< the folder's own name where there is none
    std::optional<std::filesystem::path> database; ///< the default store where there is none
};

/// A folder that can't become a project. The message says what to do.
struct Refusal : Error {
    explicit Refusal(std::string text) : message(std::move(text)) {}
    [[nodiscard]] std::string description() const override { return message; }
    std::string message;
};

/// Registers the repository's top, unless it is there, writes `settings.toml` where there is none, and finds or makes
/// the conversation that attached clients share. Writes the configuration block of an MCP client to `out` and what it
/// did to `notes`. Throws Refusal, and what the store and the file system meet.
void run(const Options& options, std::ostream& out, std::ostream& notes);

} // namespace veltry::Init
