#include "ACP/ACPClient/Harness.h"

#include "Platform/ChildProcess.h"

#include <algorithm>
#include <array>

namespace veltry {

// The packages are pinned, so that an agent doesn't change under a project; docs/agent-client.md says what was seen on
// which.
std::span<const Harness> Harness::all()
{
    static const std::array<Harness, 3> table{{
        {.name = "Claude Code",
         .executable = "npx",
         .arguments = {"-y", "@agentclientprotocol/claude-agent-acp@0.93.0"},
         .autoMode = "auto",
         .command = "claude",
         .installPage = "https://code.claude.com/docs/en/setup"},
        {.name = "Codex",
         .executable = "npx",
         .arguments = {"-y", "@agentclientprotocol/codex-acp@2.2.2"},
         .command = "codex",
         .installPage = "https://developers.openai.com/codex/cli"},
        {.name = "OpenCode",
         .executable = "npx",
         .arguments = {"-y", "opencode-ai@1.19.3", "acp"},
         .command = "opencode",
         .installPage = "https://opencode.ai/docs"},
    }};
    return table;
}

const Harness& Harness::named(std::string_view name)
{
    const auto found = std::ranges::find(all(), name, &Harness::name);
    return found == all().end() ? claudeCode() : *found;
}

std::optional<Harness::Missing> Harness::missing(std::string_view path) const
{
    if (!ChildProcess::find(executable, path))
        return executable == "npx" ? Missing::node : Missing::command;
    if (command && !ChildProcess::find(*command, path))
        return Missing::command;
    return std::nullopt;
}

} // namespace veltry
