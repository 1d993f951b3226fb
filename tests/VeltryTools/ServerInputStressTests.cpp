#include "Platform/Files.h"
#include "Platform/ProcessFacts.h"
#include "Platform/ProcessTable.h"
#include "ServerLab.h"
#include "Support/Stress.h"

#include <fmt/format.h>
#include <gmock/gmock.h>

#include <fcntl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <future>
#include <random>

namespace veltry {
namespace {

using test::ServerLab;
using test::stressed;
using testing::ElementsAreArray;

std::string randomBytes(std::size_t count)
{
    std::mt19937 source(7);
    std::uniform_int_distribution<int> byte(0, 255);
    std::string bytes(count, '\0');
    for (char& c : bytes)
        c = static_cast<char>(byte(source));
    return bytes;
}

std::string request(std::string_view id, std::string_view params)
{
    return fmt::format(R"({{"jsonrpc":"2.0","id":{},"method":"tools/list","params":{}}})", id, params);
}

TEST(ServerInputStress, ForeignBytesEndNoServer)
{
    const auto huge = stressed<std::size_t>(50'000'000);
    const std::string brackets(100'000, '[');

    const struct {
        std::string name, bytes;
    } cases[] = {
        {"random bytes", randomBytes(stressed<std::size_t>(5'000'000))},
        {"a request of 50 MB", request("\"huge\"", "\"" + std::string(huge, 'x') + "\"")},
        {"an array of 50 MB", request("\"array\"", "[0" + std::string(huge / 2, ',') + "0]")},
        {"open brackets in a request", request("\"deep\"", brackets + std::string(100'000, ']'))},
        {"NUL bytes", std::string(1000, '\0') + "\n" + request("\"nul\"", "{}") + std::string(1, '\0')},
        {"many empty lines", std::string(stressed<std::size_t>(1'000'000), '\n') + "\r\r\n\r\n"},
    };

    const ServerLab test;
    auto server = test.serve();
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        server.sendLine(c.bytes);
        ASSERT_EQ(server.request("ping"), JSONValue::object({}));
    }
    const std::uint64_t bytes = ProcessTable::usage(server.pid())->memory;
    EXPECT_TRUE(test::sanitized || bytes < 64U << 20) << bytes; // a sanitizer keeps freed memory
    server.closeInput();
    EXPECT_EQ(server.wait(), 0);
}

enum class Line { pipes, socket };         // a socket is one for both directions
enum class Reading { atOnce, afterwards }; // nobody reads before the server has ended

/// Lets a server read the requests and then the end of its input, and returns what it wrote until it ended.
std::string serve(const ServerLab& test, Line line, std::string_view requests, Reading reading)
{
    Pipe in;
    Pipe out;
    if (int ends[2]; line == Line::socket && ::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) == 0) {
        in = {.reading = FileDescriptor(ends[0]), .writing = FileDescriptor(ends[1])};
        out = {.reading = in.writing.duplicate(), .writing = in.reading.duplicate()};
    } else {
        in = Pipe::make();
        out = Pipe::make();
    }
    Files::writeAll(in.writing, requests, "the requests");
    ::shutdown(in.writing.get(), SHUT_WR); // means nothing to a pipe
    in.writing.reset();
    const auto flags = [&] {
        return std::array{::fcntl(in.reading.get(), F_GETFL), ::fcntl(out.writing.get(), F_GETFL)};
    };
    const std::array before = flags();
    const pid_t server = ChildProcess::start(
        {.executable = test::toolsProgram(),
         .arguments = test.serverArguments(),
         .environment = ProcessFacts::environment(),
         .input = ChildProcess::Stream::to(in.reading.get()),
         .output = ChildProcess::Stream::to(out.writing.get())});
    const auto launch = reading == Reading::afterwards ? std::launch::deferred : std::launch::async;
    std::future<std::string> answers = std::async(launch, [&out] {
        std::string text;
        std::array<char, 65536> buffer{};
        for (ssize_t count; (count = ::read(out.reading.get(), buffer.data(), buffer.size())) > 0;)
            text.append(buffer.data(), static_cast<std::size_t>(count));
        return text;
    });
    EXPECT_EQ(ChildProcess::wait(server), 0); // CTest's own limit ends a test that hangs here
    EXPECT_EQ(flags(), before) << "others may share them";
    in.reading.reset();
    out.writing.reset();
    return answers.get();
}

std::vector<std::string> answeredIDs(const std::string& text)
{
    std::vector<std::string> ids;
    for (std::size_t at = 0, end; (end = text.find('\n', at)) != std::string::npos; at = end + 1)
        ids.push_back(JSONValue::parse(text.substr(at, end - at)).find("id")->text());
    return ids;
}

TEST(ServerInputStress, WhatWasReadBeforeTheEndIsAnsweredAndWhatWaitsIsDropped)
{
    const ServerLab test;
    static_cast<void>(test.lab.launch(test.baseline(test.holding()).id, 0));
    // Two nodes hold the server up for longer than a peer that doesn't read gets at the end.
    test.repository.write(".git/hooks/post-checkout", "#!/bin/sh\nsleep 0.6\n");
    std::filesystem::permissions(test.repository / ".git/hooks/post-checkout", std::filesystem::perms::owner_all);
    constexpr std::string_view create =
        R"("tools/call","params":{"name":"create_experiment","arguments":{"title":"Slow","run_command":"true"}})";
    constexpr std::string_view tree = R"("tools/call","params":{"name":"experiment_tree"})";
    std::string requests = R"({"jsonrpc":"2.0","id":"wait","method":"tools/call","params":{"name":"wait_for_runs"}})";
    std::vector<std::string> expected;
    for (int i = 0; i < 200; ++i) {
        // Every tenth answer is long: together they are more than a pipe holds.
        const std::string_view method = i == 51 || i == 52 ? create
                                        : i == 199         ? tree
                                        : i % 10 == 0      ? R"("tools/list")"
                                                           : R"("ping")";
        requests += fmt::format(
            "\n"
            R"({{"jsonrpc":"2.0","id":{},"method":{}}})",
            i, method);
        expected.push_back(std::to_string(i));
    }
    requests += "\n"
                R"({"jsonrpc":"2.0","id":"half","method":"ping"})"; // no line yet

    for (const Line line : {Line::pipes, Line::socket})
        EXPECT_THAT(answeredIDs(serve(test, line, requests, Reading::atOnce)), ElementsAreArray(expected));
}

TEST(ServerInputStress, TheEndOfInputEndsAServerWhosePeerDoesNotRead)
{
    const ServerLab test;
    std::string requests;
    for (int i = 0; i < 500; ++i)
        requests += request(std::to_string(i), "{}") + "\n"; // megabytes of answers
    for (const Line line : {Line::pipes, Line::socket})
        EXPECT_THAT(answeredIDs(serve(test, line, requests, Reading::afterwards)), testing::SizeIs(testing::Lt(500U)));
}

} // namespace
} // namespace veltry
