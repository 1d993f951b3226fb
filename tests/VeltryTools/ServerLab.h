#pragma once

#include "Support/TestLab.h"

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace veltry::test {

/// A lab for several servers, whose runs can be made to go on until they are let go.
class ServerLab : public TestLab {
public:
    ServerLab() { hold(); }

    /// Lets the runs go and waits until none is left, whoever started it.
    ~ServerLab();

    /// A server with a runs folder of that name, and further arguments.
    [[nodiscard]] McpProcess server(const std::string& runsFolder, const std::vector<std::string>& more = {}) const;

    /// A command that goes on until letGo(), or until the lab is gone.
    [[nodiscard]] std::string holding() const;
    void hold() const;
    void letGo() const;

    /// False if a run is still in flight, or its supervisor still there, after half a minute.
    [[nodiscard]] bool allEnded() const;
};

/// The argument of the tools that take a node.
[[nodiscard]] JSONValue naming(const Experiment& node);
/// Whether a tool's answer says that it failed.
[[nodiscard]] bool isError(const JSONValue& answer);
/// The run that an answer of run_experiment names. Throws std::runtime_error with the answer if it names none.
[[nodiscard]] UUID startedRun(const std::string& text);

/// What /proc says of other processes.
namespace processes {

struct Child {
    pid_t pid;
    char state; ///< as ps(1) shows it: 'Z' for a zombie
};

[[nodiscard]] std::vector<Child> childrenOf(pid_t parent);
/// Those that have the text somewhere in their command line.
[[nodiscard]] std::vector<pid_t> withArgument(std::string_view text);
[[nodiscard]] std::size_t descriptorCount(pid_t process);
/// Kilobytes of resident memory; 0 under a sanitizer, which keeps freed memory.
[[nodiscard]] std::int64_t residentKilobytes(pid_t process);

} // namespace processes

} // namespace veltry::test
