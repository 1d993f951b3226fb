#include "ACP/JSONRPCConnection/JSONRPCConnection.h"
#include "ACP/JSONRPCConnection/LineSplitter.h"
#include "ACP/JSONRPCConnection/MemoryTransport.h"
#include "Platform/SystemLog.h"
#include "Property.h"

#include <asio/co_spawn.hpp>
#include <asio/detached.hpp>
#include <asio/io_context.hpp>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

using veltry::Envelope;
using veltry::JSONRPCConnection;
using veltry::JSONRPCError;
using veltry::JSONValue;
using veltry::LineSplitter;
using veltry::MemoryTransport;
using veltry::fuzz::require;

namespace {

using Lines = std::vector<std::string>;

/// The lines when the bytes come in pieces, whose lengths the bytes themselves give.
Lines splitInPieces(std::string_view bytes, std::size_t longest)
{
    LineSplitter splitter;
    Lines lines;
    while (!bytes.empty()) {
        const std::size_t length = 1 + static_cast<unsigned char>(bytes.back()) % longest;
        for (std::string& line : splitter.add(bytes.substr(0, length)))
            lines.push_back(std::move(line));
        bytes.remove_prefix(std::min(length, bytes.size()));
    }
    return lines;
}

std::optional<JSONValue> toJSON(const std::optional<JSONRPCError>& error)
{
    return error ? std::optional(error->toJSON()) : std::nullopt;
}

/// What was read as a message says the same when it is written and read again.
void readAndWrite(const Envelope& message)
{
    const std::string line = message.line();
    require(line.find('\n') == std::string::npos, "a message is one line");
    const std::optional<Envelope> again = Envelope::parse(line);
    require(again.has_value(), "a written message can be read");
    require(
        again->id == message.id && again->method == message.method && again->params == message.params &&
            again->result == message.result && toJSON(again->error) == toJSON(message.error),
        "a written message reads back equal");
}

asio::awaitable<JSONValue> echo(std::string /*method*/, JSONValue params)
{
    co_return params;
}

asio::awaitable<void> ignore(std::string /*method*/, JSONValue /*params*/)
{
    co_return;
}

asio::awaitable<void> converse(std::shared_ptr<MemoryTransport> far, Lines lines, Lines* answers)
{
    for (const std::string& line : lines)
        co_await far->send(line);
    while (std::optional<std::string> answer = co_await far->lines().next())
        answers->push_back(std::move(*answer));
}

/// Gives the lines to a whole connection, over a stream in memory, and returns what it answers.
Lines answersTo(const Lines& lines)
{
    asio::io_context context(1);
    const asio::any_io_executor executor = context.get_executor();
    Lines answers;
    const MemoryTransport::Pair ends = MemoryTransport::pair(executor);
    JSONRPCConnection::make(executor, ends.first, false)->start(ignore, echo);
    asio::co_spawn(executor, converse(ends.second, lines, &answers), asio::detached);
    context.poll(); // until all of them wait for more
    asio::co_spawn(executor, ends.second->close(), asio::detached);
    context.restart();
    context.poll();
    return answers;
}

/// Each request is answered once, under its own id and with its own params, and nothing else is answered.
void requireAnswers(const Lines& lines)
{
    std::vector<std::string> expected;
    for (const std::string& line : lines) {
        const std::optional<Envelope> message = Envelope::parse(line);
        if (!message)
            continue;
        readAndWrite(*message);
        if (!message->method || !message->id)
            continue;
        Envelope reply;
        reply.id = message->id;
        reply.result = message->params.value_or(nullptr);
        expected.push_back(reply.line());
    }
    require(answersTo(lines) == expected, "every request is answered once, in order");
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    veltry::SystemLog::redirect([](auto&&...) {}); // bad lines are logged, one by one
    const std::string_view bytes(reinterpret_cast<const char*>(data), size);
    const Lines lines = LineSplitter().add(bytes);
    require(lines.size() == static_cast<std::size_t>(std::ranges::count(bytes, '\n')), "a line ends at each line feed");
    for (const std::size_t longest : {1U, 7U, 255U})
        require(splitInPieces(bytes, longest) == lines, "cut in pieces the lines are the same");
    requireAnswers(lines);
    return 0;
}
