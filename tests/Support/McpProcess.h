#pragma once

#include "Base/JSONValue.h"
#include "Platform/ChildProcess.h"
#include "Platform/FileDescriptor.h"

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace veltry::test {

/// `veltry-tools` as a child, with a client that speaks to it over its pipes. Every wait fails by itself after half a
/// minute, with an exception that says what was waited for.
class McpProcess {
public:
    /// `arguments` behind the program's name: "mcp", "--db", ...
    /// `more` is added to this process's environment.
    explicit McpProcess(const std::vector<std::string>& arguments, ChildProcess::Environment more = {});
    McpProcess(McpProcess&& other) noexcept;
    McpProcess& operator=(McpProcess&&) = delete;
    /// Ends the process, by force if need be.
    ~McpProcess();

    [[nodiscard]] pid_t pid() const { return pid_; }

    void sendLine(std::string_view line);
    /// Sends a request and returns its id.
    std::int64_t send(const std::string& method, JSONValue params = JSONValue::object({}));
    /// The next message that comes, or nothing at the end of the output. Throws for a line that isn't JSON.
    [[nodiscard]] std::optional<JSONValue> receive();
    /// The answer to that request; messages that come before it are dropped.
    [[nodiscard]] JSONValue answer(std::int64_t id);
    /// Sends a request and returns its answer's result.
    [[nodiscard]] JSONValue request(const std::string& method, JSONValue params = JSONValue::object({}));

    std::int64_t sendCall(const std::string& tool, JSONValue arguments = JSONValue::object({}));
    /// Calls a tool and returns its text, whether it is an error or not.
    std::string call(const std::string& tool, JSONValue arguments = JSONValue::object({}));

    /// Ends the process's input.
    void closeInput() { input_.reset(); }

    /// Waits for the process to end and returns its exit number.
    [[nodiscard]] int wait();
    void kill();

private:
    FileDescriptor input_;
    FileDescriptor output_;
    std::string unread_;
    std::int64_t nextID_ = 1;
    pid_t pid_ = -1;
};

/// The text of a `tools/call` answer.
[[nodiscard]] std::string toolText(const JSONValue& answer);

/// Runs one of our executables to its end, without input.
[[nodiscard]] ChildProcess::Output runProgram(
    const std::filesystem::path& program, const std::vector<std::string>& arguments,
    const ChildProcess::Environment& added = {}, const std::filesystem::path& directory = {});

[[nodiscard]] std::filesystem::path toolsProgram(); ///< the `veltry-tools` of this build
[[nodiscard]] std::filesystem::path hostProgram();  ///< the `veltry` of this build

} // namespace veltry::test
