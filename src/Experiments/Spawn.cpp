#include "Experiments/Spawn.h"

#include "Base/Text.h"
#include "Platform/Files.h"

#include <fmt/format.h>

namespace veltry::Spawn {

std::string Failure::description() const
{
    return fmt::format("Failure(executable: {}, code: {})", text::quoted(executable), code);
}

ProcessID start(const Options& options)
{
    try {
        return ChildProcess::start(
            {.executable = options.executable,
             .arguments = options.arguments,
             .environment = options.environment,
             .directory = options.directory,
             // Nobody types to a run: what asks something meets the end of its input.
             .input = ChildProcess::Stream::null(),
             .output = ChildProcess::Stream::appendTo(options.log),
             // One open file for both, so that their lines keep their order in the log.
             .error = ChildProcess::Stream::sameAsOutput(),
             .group = options.group ? ChildProcess::Group::own : ChildProcess::Group::ownSession});
    } catch (const ChildProcess::StartFailure& failure) {
        throw Failure(failure.executable, failure.code);
    }
}

std::int32_t wait(ProcessID child) noexcept
{
    return ChildProcess::wait(child);
}

std::filesystem::path loginShell()
{
    // zsh first: bash and sh read /etc/profile, which on Debian sets PATH anew.
    for (const char* shell : {"/bin/zsh", "/bin/bash"})
        if (Files::isExecutable(shell))
            return shell;
    return "/bin/sh";
}

} // namespace veltry::Spawn
