#pragma once

#include "Base/Error.h"
#include "Platform/ChildProcess.h"

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

/// Starting the processes of a run: its supervisor, and its shell below that. May be called from any thread.
namespace veltry::Spawn {

/// A child that could not be started, also for want of its folder or its log.
struct Failure : Error {
    Failure(std::string path, std::int32_t errorNumber) : executable(std::move(path)), code(errorNumber) {}

    /// `Failure(executable: "/bin/zsh", code: 2)`.
    [[nodiscard]] std::string description() const override;

    friend bool operator==(const Failure& left, const Failure& right)
    {
        return left.executable == right.executable && left.code == right.code;
    }

    std::string executable; ///< the path that was to be started
    std::int32_t code;      ///< the error number that posix_spawn(3) returned
};

struct Options {
    std::filesystem::path executable;      ///< absolute
    std::vector<std::string> arguments;    ///< after argv[0]
    ChildProcess::Environment environment; ///< the whole of it
    std::filesystem::path directory;       ///< the child's working directory
    std::filesystem::path log;             ///< takes the child's output and errors, appended; made with mode 0644
    bool group = false;                    ///< a process group of its own, else a session of its own
};

/// Starts the child with the null device as its input and nothing of ours but its log, and returns its pid without
/// waiting. Throws Failure.
[[nodiscard]] ProcessID start(const Options& options);

/// Blocks until the child ends. Its exit status, 128 + n if signal n ended it, -1 if it can't be waited for.
[[nodiscard]] std::int32_t wait(ProcessID child) noexcept;

/// The first of `/bin/zsh`, `/bin/bash` and `/bin/sh` that can be executed; the last one if none can.
[[nodiscard]] std::filesystem::path loginShell();

} // namespace veltry::Spawn
