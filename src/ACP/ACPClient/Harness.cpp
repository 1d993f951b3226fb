#include "ACP/ACPClient/Harness.h"

#include "ACP/ACPClient/AgentProcess.h"

#include <algorithm>
#include <array>

namespace veltry {

namespace {

bool isOnPath(const std::string& command, std::string_view path)
{
    try {
        static_cast<void>(AgentProcess::find(command, path));
        return true;
    } catch (const AgentProcess::Failure&) {
        return false;
    }
}

} // namespace

// The packages are pinned, so that an agent doesn't change under a project; docs/agents.md says what was seen on which.
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
    if (!isOnPath(executable, path))
        return executable == "npx" ? Missing::node : Missing::command;
    if (command && !isOnPath(*command, path))
        return Missing::command;
    return std::nullopt;
}

} // namespace veltry
