#pragma once

#include "Base/Error.h"
#include "Platform/FileDescriptor.h"
#include "Platform/ProcessID.h"

#include <chrono>
#include <filesystem>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

/// The one way to start a child. Every child gets the standard descriptors alone, each signal at its default, and none
/// blocked. May be called from any thread.
namespace veltry::ChildProcess {

using Environment = std::map<std::string, std::string>;

/// Where one of the child's standard descriptors leads.
class Stream {
public:
    enum class Kind { null, descriptor, append, sameAsOutput };

    [[nodiscard]] static Stream null() { return {}; }
    /// An open descriptor of ours, which stays ours.
    [[nodiscard]] static Stream to(int descriptor) { return Stream(Kind::descriptor, descriptor, {}); }
    /// A file opened for appending, made with mode 0644 if it isn't there. For output and errors.
    [[nodiscard]] static Stream appendTo(std::filesystem::path file)
    {
        return Stream(Kind::append, -1, std::move(file));
    }
    /// For errors: wherever the output goes.
    [[nodiscard]] static Stream sameAsOutput() { return Stream(Kind::sameAsOutput, -1, {}); }

    Stream() = default;
    Kind kind = Kind::null;
    int descriptor = -1;
    std::filesystem::path file;

private:
    Stream(Kind what, int fd, std::filesystem::path path) : kind(what), descriptor(fd), file(std::move(path)) {}
};

enum class Group {
    ours,       ///< the caller's process group
    own,        ///< a new process group whose id is the child's pid
    ownSession, ///< a new session: a terminal's or a login's end doesn't reach the child
};

struct Command {
    std::filesystem::path executable;   ///< absolute, as find() gives it; PATH is not searched
    std::vector<std::string> arguments; ///< after argv[0], which is the executable's path
    Environment environment;            ///< the whole of it
    std::filesystem::path directory{};  ///< the child's working directory; empty for the caller's
    Stream input{};
    Stream output{};
    Stream error{};
    Group group = Group::ours;
};

/// A child that could not be started, for any reason that posix_spawn(3) meets: no such program or folder, a file that
/// can't be opened.
struct StartFailure : Error {
    StartFailure(std::string path, int errorNumber) : executable(std::move(path)), code(errorNumber) {}
    /// "could not start <executable>: <the system's words>".
    [[nodiscard]] std::string description() const override;
    std::string executable;
    int code; ///< as errno has it
};

/// The absolute path of a command: a name with a slash is a path itself, any other is looked for in the folders of
/// `path`, a value of PATH, in order; empty ones are passed over. Nothing if there is no program of that name.
[[nodiscard]] std::optional<std::filesystem::path> find(const std::string& command, std::string_view path);

/// Starts it and returns its pid, which the caller must wait for. Throws StartFailure.
[[nodiscard]] ProcessID start(const Command& command);

/// Blocks until that child has ended. Returns its exit status, 128 + n if signal n ended it, -1 if there is no such
/// child.
[[nodiscard]] int wait(ProcessID child) noexcept;
/// What wait() returns of a child that mapped a file and read there what somebody had cut off meanwhile.
extern const int endedByLostBytes;
/// Takes the status of that child if it has ended already; false while it runs. Never blocks.
bool reapIfEnded(ProcessID child) noexcept;

/// Sends SIGTERM to every process of the group that this one leads. One that has ended already is fine.
void terminateGroup(ProcessID leader) noexcept;
/// The same with SIGKILL.
void killGroup(ProcessID leader) noexcept;
/// Sends SIGTERM to that group and waits for its leader, a child of ours; sends SIGKILL once `grace` is over. Returns
/// what wait() does.
int endGroup(ProcessID leader, std::chrono::milliseconds grace) noexcept;

/// A descriptor that becomes readable when that child has ended; it can be waited for with poll(2) and its kind. Throws
/// SystemError.
[[nodiscard]] FileDescriptor exitEvent(ProcessID child);

struct Output {
    int exitNumber = 0; ///< as wait() gives it
    std::string output;
    std::string error;
};

/// Starts it with pipes for output and error, in whose place `command` says nothing, reads both to their ends at once,
/// and waits. Throws StartFailure and SystemError.
[[nodiscard]] Output run(Command command);

/// The same in a session of its own and for so long alone, or until a signal comes that we handle: then that session's
/// first group is killed and nothing is returned. For programs that a person's own files may hold up.
[[nodiscard]] std::optional<Output> runWithin(std::chrono::milliseconds patience, Command command);

/// `first | second`: the exit number is that of the first of the two which failed, so that a failing source counts as
/// well as a failing sink; the errors of both come mixed in `error`. Throws StartFailure and SystemError.
[[nodiscard]] Output runPipeline(Command first, Command second);

} // namespace veltry::ChildProcess
