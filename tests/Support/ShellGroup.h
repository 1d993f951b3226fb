#pragma once

#include "Platform/ChildProcess.h"
#include "Platform/ProcessFacts.h"

#include <string>

namespace veltry::test {

/// A command of the shell that leads a process group of its own, all of which ends with this value.
class ShellGroup {
public:
    explicit ShellGroup(const std::string& command)
        : id_(ChildProcess::start(
              {.executable = "/bin/sh",
               .arguments = {"-c", command},
               .environment = ProcessFacts::environment(),
               .directory = {},
               .input = {},
               .output = {},
               .error = {},
               .group = ChildProcess::Group::own}))
    {
    }
    ShellGroup(const ShellGroup&) = delete;
    ShellGroup& operator=(const ShellGroup&) = delete;
    ~ShellGroup()
    {
        ChildProcess::terminateGroup(id_);
        static_cast<void>(ChildProcess::wait(id_));
    }

    /// Of the group, and of the shell that leads it.
    [[nodiscard]] pid_t id() const { return id_; }

private:
    pid_t id_;
};

} // namespace veltry::test
