#pragma once

#include "ACP/ACPClient/WireRecord.h"

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

/// What client and agent say of themselves before the first session.
namespace veltry {

struct Implementation {
    std::string name;
    std::string version;
};

struct FileSystemCapabilities {
    bool readTextFile = false;
    bool writeTextFile = false;
};

struct ClientCapabilities {
    FileSystemCapabilities fs;
    bool terminal = false;
};

/// The parameters of "initialize".
struct InitializeParams {
    /// Protocol version 1, with both file capabilities and no terminal.
    [[nodiscard]] static InitializeParams from(Implementation client);

    std::int64_t protocolVersion = 1;
    ClientCapabilities clientCapabilities;
    Implementation clientInfo;
};

/// A way to log in, for AuthenticateParams.
struct AuthMethod {
    std::string id;
    std::string name;
    std::optional<std::string> description;
};

/// What the agent can do is asked of its raw JSON; each question is answered with no where the path is missing.
struct InitializeResult {
    [[nodiscard]] bool loadsSessions() const;   ///< `agentCapabilities.loadSession` is true
    [[nodiscard]] bool resumesSessions() const; ///< `agentCapabilities.sessionCapabilities` has "resume", of any value
    [[nodiscard]] bool listsSessions() const;   ///< the same with "list"
    [[nodiscard]] bool takesSystemPrompt() const; ///< the same with "systemPrompt"
    [[nodiscard]] bool steers() const;            ///< `_meta.steering.supported` is true

    std::int64_t protocolVersion = 0;
    std::optional<JSONValue> agentCapabilities;
    std::optional<std::vector<AuthMethod>> authMethods;
    std::optional<JSONValue> meta; ///< "_meta"
};

/// The parameters of "authenticate".
struct AuthenticateParams {
    std::string methodId;
};

} // namespace veltry
