#pragma once

#include "Base/Error.h"
#include "Platform/ChildProcess.h"

#include <asio/awaitable.hpp>

#include <chrono>
#include <filesystem>
#include <string>

/// The environment of a person's login shell, for starting agents with the PATH and the variables that the person's
/// profile sets. Nothing is filtered out: which variables an agent gets is the caller's decision.
namespace veltry::ShellEnvironment {

using Environment = ChildProcess::Environment;

struct Failure : Error {
    enum class Kind {
        timedOut,   ///< the profile wasn't done in time
        unreadable, ///< the profile ended the shell, or it is no POSIX shell
    };

    explicit Failure(Kind what) : kind(what) {}

    [[nodiscard]] std::string description() const override;

    Kind kind;
};

/// Runs `shell` (an absolute path) as an interactive login shell in `environment`, which reads its profile, and returns
/// the variables that it has then. The answer for the same shell and environment is kept, for the whole process. Of
/// `timeout` only whole seconds count.
///
/// The shell has a session of its own, so that it can't take the terminal from its starter, the null device as input,
/// and its errors are dropped. It is killed when the time is over, with all of its group, also after it has answered;
/// until then its end is watched for on the caller's executor. If that goes first, the shell is killed with it.
///
/// Throws Failure, ChildProcess::StartFailure and SystemError; fallback() is what is left then. A failure isn't kept.
[[nodiscard]] asio::awaitable<Environment> resolve(
    std::filesystem::path shell, Environment environment, std::chrono::nanoseconds timeout);

/// Forgets all answers. From any thread.
void forget();

/// The environment with the usual folders in front of its PATH: those of package managers and `~/.local/bin`.
[[nodiscard]] Environment fallback(Environment environment);

} // namespace veltry::ShellEnvironment
