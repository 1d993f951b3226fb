#pragma once

#include "ACP/ACPClient/ConfigOptions.h"
#include "ACP/ACPClient/Content.h"
#include "Base/Date.h"

#include <optional>
#include <string>
#include <vector>

/// How sessions begin, go on, are listed and are set. Paths are absolute.
namespace veltry {

struct EnvVariable {
    std::string name;
    std::string value;
};

/// A tool server that the agent is to start and to talk to over its standard streams.
struct McpServerStdio {
    std::string name;
    std::string command;
    std::vector<std::string> args;
    std::vector<EnvVariable> env;
};

/// Instructions for the agent.
struct SystemPrompt {
    /// Mode "append", with the text as the only block.
    [[nodiscard]] static SystemPrompt appending(std::string text);

    std::string mode;
    std::vector<ContentBlock> content;
};

/// The parameters of "session/new".
struct NewSessionParams {
    std::string cwd;
    std::vector<McpServerStdio> mcpServers;
    std::optional<std::vector<std::string>> additionalDirectories;
    std::optional<SystemPrompt> systemPrompt;
};

/// In this and the other two results the options are a LenientConfigOptions, and empty where they are no list.
struct NewSessionResult {
    std::string sessionId;
    std::vector<ConfigOption> configOptions;
};

/// The parameters of "session/resume" and "session/load".
struct ResumeSessionParams {
    std::string sessionId;
    std::string cwd;
    std::vector<McpServerStdio> mcpServers;
    std::optional<std::vector<std::string>> additionalDirectories;
    std::optional<SystemPrompt> systemPrompt;
};

struct ResumeSessionResult {
    std::vector<ConfigOption> configOptions;
};

/// The parameters of "session/list". The cursor is the last page's `nextCursor`.
struct ListSessionsParams {
    std::string cwd;
    std::optional<std::string> cursor;
};

struct SessionInfo {
    /// `updatedAt` as a moment, where it is an ISO 8601 timestamp with a zone, with or without a fraction.
    [[nodiscard]] std::optional<Date> updated() const;

    std::string sessionId;
    std::string cwd;
    std::optional<std::string> title;
    std::optional<std::string> updatedAt; ///< as it came
};

struct ListSessionsResult {
    std::vector<SessionInfo> sessions;
    std::optional<std::string> nextCursor; ///< absent on the last page
};

/// The parameters of "session/set_config_option".
struct SetConfigOptionParams {
    std::string sessionId;
    std::string configId;
    std::string value;
};

struct SetConfigOptionResult {
    std::vector<ConfigOption> configOptions;
};

} // namespace veltry
