#include "ACP/JSONRPCConnection/LineSplitter.h"
#include "Base/JSONValue.h"
#include "Platform/FileDescriptor.h"
#include "Platform/Files.h"

#include <fmt/format.h>

#include <unistd.h>

#include <array>
#include <string_view>

using veltry::FileDescriptor;
using veltry::JSONValue;

/// answer-loop [TEXT true|false]: answers each line of its input as a tool that says TEXT would, or with an empty
/// object as `ping` is answered, and does nothing else. It is the limit that calls of a server are held against: the
/// same bytes in and out, the same reader and writer of JSON, an answer written before the next line is read, and no
/// server in between.
int main(int count, char** arguments)
{
    if (count != 1 && count != 3)
        return 2;
    const bool isError = count == 3 && arguments[2] == std::string_view("true");
    const FileDescriptor output(STDOUT_FILENO);
    veltry::LineSplitter splitter;
    std::array<char, 65536> buffer; // NOLINT(cppcoreguidelines-pro-type-member-init): filled by read
    for (ssize_t read; (read = ::read(STDIN_FILENO, buffer.data(), buffer.size())) > 0;)
        for (const std::string& line : splitter.add({buffer.data(), static_cast<std::size_t>(read)})) {
            const JSONValue request = JSONValue::parse(line);
            JSONValue result = JSONValue::object({});
            if (count == 3) {
                JSONValue block = JSONValue::object({{"type", "text"}, {"text", arguments[1]}});
                result = JSONValue::object({{"content", JSONValue::array({std::move(block)})}, {"isError", isError}});
            }
            const JSONValue answer =
                JSONValue::object({{"id", *request.find("id")}, {"jsonrpc", "2.0"}, {"result", std::move(result)}});
            veltry::Files::writeAll(output, answer.text() + "\n", "the output");
        }
}
