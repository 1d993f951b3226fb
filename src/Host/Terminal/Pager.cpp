#include "Host/Terminal/Pager.h"

#include "Platform/ChildProcess.h"
#include "Platform/ProcessFacts.h"
#include "Platform/TerminalInput.h"

#include <algorithm>
#include <optional>

namespace veltry {

namespace {

std::optional<ChildProcess::Command> pager()
{
    const std::optional<std::string> wanted = ProcessFacts::variable("PAGER");
    if (wanted && (wanted->empty() || *wanted == "cat"))
        return std::nullopt;
    ChildProcess::Command command{.executable = "/bin/sh", .arguments = {}, .environment = ProcessFacts::environment()};
    if (!wanted && !ChildProcess::find("less", ProcessFacts::variable("PATH").value_or("")))
        return std::nullopt;
    command.arguments = {"-c", wanted ? *wanted : "less -FRX"};
    // For a PAGER of "less": colours, and the table stays on the screen behind it.
    command.environment.emplace("LESS", "FRX");
    command.output = ChildProcess::Stream::to(StandardStreams::output);
    command.error = ChildProcess::Stream::to(StandardStreams::error);
    return command;
}

} // namespace

void writePaged(const Terminal& out, std::string_view lines, bool direct)
{
    const bool isLonger =
        out.canRedraw() && static_cast<std::size_t>(std::ranges::count(lines, '\n')) >= out.size()->rows;
    std::optional<ChildProcess::Command> command = isLonger && !direct ? pager() : std::nullopt;
    if (!command)
        return out.write(lines);
    Pipe pipe = Pipe::make();
    command->input = ChildProcess::Stream::to(pipe.reading.get());
    // The pager has the terminal, and decides what Ctrl-C means there.
    const InterruptIgnored ignored;
    std::optional<ProcessID> child;
    try {
        child = ChildProcess::start(*command);
    } catch (const ChildProcess::StartFailure&) {
        return out.write(lines);
    }
    pipe.reading.reset();
    // False where the person had seen enough.
    static_cast<void>(StandardStreams::writeAll(pipe.writing.get(), lines));
    pipe.writing.reset();
    constexpr int notFound = 127; // by the shell, which has said so
    if (ChildProcess::wait(*child) == notFound)
        out.write(lines);
}

} // namespace veltry
