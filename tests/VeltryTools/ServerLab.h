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
    /// `database` as TestLab's.
    explicit ServerLab(const std::filesystem::path& database = {});

    /// Lets the runs go and waits until none is left, whoever started it.
    ~ServerLab();

    /// A command that goes on until letGo(), or until the lab is gone.
    [[nodiscard]] std::string holding() const;
    void hold() const;
    void letGo() const;

    /// False if a run is still in flight, or its supervisor still there, after half a minute.
    [[nodiscard]] bool allEnded() const;
};

/// The argument of the tools that take a node.
[[nodiscard]] JSONValue naming(const Experiment& node);
/// The run that an answer of run_experiment names. Throws std::runtime_error with the answer if it names none.
[[nodiscard]] UUID startedRun(const std::string& text);

/// What /proc says of other processes.
namespace processes {

/// The children of a process, ended ones that it hasn't waited for included.
[[nodiscard]] std::vector<pid_t> childrenOf(pid_t parent);
/// Those that have the text somewhere in their command line.
[[nodiscard]] std::vector<pid_t> withArgument(std::string_view text);

} // namespace processes

} // namespace veltry::test
