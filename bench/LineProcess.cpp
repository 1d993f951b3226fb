#include "LineProcess.h"

#include "Base/JSONValue.h"
#include "Platform/ChildProcess.h"
#include "Platform/Files.h"
#include "Platform/SystemError.h"
#include "Programs.h"

#include <fmt/format.h>

#include <unistd.h>

#include <algorithm>
#include <array>
#include <stdexcept>
#include <thread>

namespace veltry::bench {

LineProcess::LineProcess(const std::filesystem::path& executable, const std::vector<std::string>& arguments)
{
    Pipe input = Pipe::make();
    Pipe output = Pipe::make();
    ChildProcess::Command command = program(executable, arguments);
    command.input = ChildProcess::Stream::to(input.reading.get());
    command.output = ChildProcess::Stream::to(output.writing.get());
    command.error = ChildProcess::Stream::to(STDERR_FILENO);
    child_ = ChildProcess::start(command);
    input_ = std::move(input.writing);
    output_ = std::move(output.reading);
}

LineProcess::~LineProcess()
{
    input_.reset();
    output_.reset();
    static_cast<void>(ChildProcess::wait(child_));
}

void LineProcess::send(std::string_view line)
{
    Files::writeAll(input_, line, "a pipe");
}

bool LineProcess::readMore()
{
    std::array<char, 65536> buffer; // NOLINT(cppcoreguidelines-pro-type-member-init): filled by read
    const ssize_t count = ::read(output_.get(), buffer.data(), buffer.size());
    if (count < 0)
        throw SystemError("could not read from a child");
    held_.append(buffer.data(), static_cast<std::size_t>(count));
    return count > 0;
}

std::string LineProcess::readLine()
{
    std::size_t searched = 0;
    std::size_t end = held_.find('\n');
    while (end == std::string::npos) {
        searched = held_.size();
        if (!readMore())
            throw std::runtime_error("the child ended before it answered");
        end = held_.find('\n', searched);
    }
    std::string line = held_.substr(0, end);
    held_.erase(0, end + 1);
    return line;
}

void LineProcess::exchange(std::string_view lines, std::size_t answers)
{
    const std::jthread writer([&] { send(lines); });
    for (std::size_t seen = 0; seen < answers; held_.clear()) {
        if (!readMore())
            throw std::runtime_error("the child ended before it answered");
        seen += static_cast<std::size_t>(std::ranges::count(held_, '\n'));
    }
}

std::size_t LineProcess::skipAll()
{
    std::size_t count = held_.size();
    held_.clear();
    while (readMore()) {
        count += held_.size();
        held_.clear();
    }
    return count;
}

std::string LineProcess::call(std::string_view tool, std::string_view arguments)
{
    send(fmt::format(
        R"({{"jsonrpc":"2.0","id":1,"method":"tools/call","params":{{"name":"{}","arguments":{}}}}})"
        "\n",
        tool, arguments));
    const JSONValue answer = JSONValue::parse(readLine());
    const JSONValue* result = answer.find("result");
    const JSONValue* content = result ? result->find("content") : nullptr;
    if (!content || content->array()->empty())
        throw std::runtime_error(fmt::format("{} got no result: {}", tool, answer.text()));
    const std::string& text = *content->array()->front().find("text")->string();
    if (*result->find("isError")->boolean())
        throw std::runtime_error(fmt::format("{} failed: {}", tool, text));
    return text;
}

} // namespace veltry::bench
