#include "Support/McpProcess.h"

#include "Platform/Files.h"
#include "Platform/ProcessFacts.h"
#include "Support/Eventually.h"

#include <poll.h>
#include <unistd.h>

#include <csignal>
#include <stdexcept>

namespace veltry::test {

namespace {

constexpr int patience = 30'000; // milliseconds

} // namespace

McpProcess::McpProcess(const std::vector<std::string>& arguments, ChildProcess::Environment more)
{
    std::signal(SIGPIPE, SIG_IGN);
    Pipe input = Pipe::make();
    Pipe output = Pipe::make();
    ChildProcess::Command command;
    command.executable = toolsProgram();
    command.arguments = arguments;
    command.environment = std::move(more);
    command.environment.merge(ProcessFacts::environment());
    command.input = ChildProcess::Stream::to(input.reading.get());
    command.output = ChildProcess::Stream::to(output.writing.get());
    command.error = ChildProcess::Stream::to(STDERR_FILENO);
    pid_ = ChildProcess::start(command);
    input_ = std::move(input.writing);
    output_ = std::move(output.reading);
}

McpProcess::McpProcess(McpProcess&& other) noexcept
    : input_(std::move(other.input_)), output_(std::move(other.output_)), unread_(std::move(other.unread_)),
      nextID_(other.nextID_), pid_(std::exchange(other.pid_, -1))
{
}

McpProcess::~McpProcess()
{
    if (pid_ > 0)
        kill();
}

void McpProcess::sendLine(std::string_view line)
{
    Files::writeAll(input_, std::string(line) + "\n", "the server");
}

std::int64_t McpProcess::send(const std::string& method, JSONValue params)
{
    const std::int64_t id = nextID_++;
    const JSONValue message =
        JSONValue::object({{"jsonrpc", "2.0"}, {"id", id}, {"method", method}, {"params", std::move(params)}});
    sendLine(message.text());
    return id;
}

std::optional<JSONValue> McpProcess::receive()
{
    std::size_t scanned = 0;
    while (true) {
        if (const std::size_t end = unread_.find('\n', scanned); end != std::string::npos) {
            const std::string line = unread_.substr(0, end);
            unread_.erase(0, end + 1);
            return JSONValue::parse(line);
        }
        scanned = unread_.size();
        pollfd polled{.fd = output_.get(), .events = POLLIN, .revents = 0};
        if (::poll(&polled, 1, patience) == 0)
            throw std::runtime_error("the server says nothing any more");
        char buffer[65536];
        const ssize_t count = ::read(output_.get(), buffer, sizeof buffer);
        if (count <= 0)
            return std::nullopt;
        unread_.append(buffer, static_cast<std::size_t>(count));
    }
}

JSONValue McpProcess::answer(std::int64_t id)
{
    while (std::optional<JSONValue> message = receive()) {
        const JSONValue* answered = message->find("id");
        if (answered && *answered == JSONValue(id))
            return std::move(*message);
    }
    throw std::runtime_error("the server ended before it answered");
}

JSONValue McpProcess::request(const std::string& method, JSONValue params)
{
    const JSONValue reply = answer(send(method, std::move(params)));
    const JSONValue* result = reply.find("result");
    if (!result)
        throw std::runtime_error("an error in place of a result: " + reply.text());
    return *result;
}

std::int64_t McpProcess::sendCall(const std::string& tool, JSONValue arguments)
{
    return send("tools/call", JSONValue::object({{"name", tool}, {"arguments", std::move(arguments)}}));
}

std::string McpProcess::call(const std::string& tool, JSONValue arguments)
{
    return toolText(answer(sendCall(tool, std::move(arguments))));
}

int McpProcess::wait()
{
    const FileDescriptor ended = ChildProcess::exitEvent(pid_);
    pollfd polled{.fd = ended.get(), .events = POLLIN, .revents = 0};
    if (::poll(&polled, 1, patience) == 0)
        throw std::runtime_error("the process doesn't end");
    return ChildProcess::wait(std::exchange(pid_, -1));
}

void McpProcess::kill()
{
    ::kill(pid_, SIGKILL);
    static_cast<void>(ChildProcess::wait(std::exchange(pid_, -1)));
}

std::string toolText(const JSONValue& answer)
{
    const JSONValue* result = answer.find("result");
    const JSONValue* content = result ? result->find("content") : nullptr;
    const JSONValue* text = content && content->array() ? content->array()->at(0).find("text") : nullptr;
    if (!text || !text->string())
        throw std::runtime_error("no tool's answer: " + answer.text());
    return *text->string();
}

ChildProcess::Output runProgram(
    const std::filesystem::path& program, const std::vector<std::string>& arguments,
    const ChildProcess::Environment& added, const std::filesystem::path& directory)
{
    ChildProcess::Command command;
    command.executable = program;
    command.arguments = arguments;
    command.environment = added;
    command.environment.merge(ProcessFacts::environment());
    command.directory = directory;
    return ChildProcess::run(std::move(command));
}

std::filesystem::path toolsProgram()
{
    return ProcessFacts::executable().parent_path() / "veltry-tools";
}

std::filesystem::path hostProgram()
{
    return ProcessFacts::executable().parent_path() / "veltry";
}

} // namespace veltry::test
