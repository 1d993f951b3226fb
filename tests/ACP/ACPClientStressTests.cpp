#include "ACP/ACPClient/ACPClient.h"
#include "ACP/JSONRPCConnection/LineSplitter.h"
#include "ACP/JSONRPCConnection/PipeTransport.h"
#include "FakeAgent.h"
#include "Support/RunOnExecutor.h"
#include "Support/Stress.h"

#include <asio/detached.hpp>
#include <asio/post.hpp>
#include <gtest/gtest.h>

#include <signal.h>
#include <unistd.h>

#include <filesystem>
#include <iterator>
#include <thread>

namespace veltry {
namespace {

constexpr std::int32_t exitStatus = 7;

/// An agent on a thread of its own: it fills each turn with updates, a permission request and a file request, and dies
/// in the middle of a line after so many of them.
class DyingAgent {
public:
    DyingAgent(Pipe input, Pipe output, int lines)
        : input_(std::move(input.reading)), output_(std::move(output.writing)), left_(lines)
    {
    }

    void live()
    {
        LineSplitter splitter;
        char buffer[4096];
        while (left_ > 0) {
            const ssize_t count = ::read(input_.get(), buffer, sizeof buffer);
            if (count <= 0)
                return;
            for (const std::string& line : splitter.add({buffer, static_cast<std::size_t>(count)}))
                take(Envelope::parse(line).value());
        }
    }

private:
    void take(const Envelope& message)
    {
        if (!message.id)
            return; // a cancel
        const std::string id = message.id->text();
        if (!message.method) { // what the permission was asked for
            if (const std::string* asked = message.id->string(); asked && asked->starts_with('p'))
                write(R"({"jsonrpc":"2.0","id":)" + asked->substr(1) + R"(,"result":{"stopReason":"end_turn"}})");
        } else if (*message.method == "initialize") {
            write(R"({"jsonrpc":"2.0","id":)" + id + R"(,"result":{"protocolVersion":1}})");
        } else {
            for (int count = 0; count < 3; ++count)
                write(
                    R"({"jsonrpc":"2.0","method":"session/update","params":{"sessionId":"s","update":{"sessionUpdate":"x"}}})");
            write(
                R"({"jsonrpc":"2.0","id":"p)" + id +
                R"(","method":"session/request_permission","params":{"sessionId":"s","toolCall":{"toolCallId":"c"},"options":[]}})");
            write(
                R"({"jsonrpc":"2.0","id":"r)" + id +
                R"(","method":"fs/read_text_file","params":{"sessionId":"s","path":"/x"}})");
        }
    }

    void write(std::string line)
    {
        if (left_ <= 0)
            return;
        if (--left_ == 0)
            line.resize(line.size() / 2);
        else
            line += '\n';
        // The pipe may be closed by now, and holds all that is asked of it otherwise.
        [[maybe_unused]] const ssize_t count = ::write(output_.get(), line.data(), line.size());
    }

    FileDescriptor input_;
    FileDescriptor output_;
    int left_;
};

asio::awaitable<void> cancel(std::shared_ptr<ACPClient> client)
{
    std::string session = "s";
    co_await client->cancel(std::move(session));
}

/// Prompts and cancels until the connection fails; tells with what status.
asio::awaitable<void> converse(
    asio::any_io_executor executor, std::shared_ptr<ACPClient> client, std::shared_ptr<Mailbox<std::int32_t>> ends)
{
    for (int turn = 0;; ++turn) {
        co_await asio::post(executor, asio::use_awaitable); // also after a write that failed at once
        if (turn % 3 == 2)
            asio::co_spawn(executor, cancel(client), asio::detached);
        try {
            std::string session = "s";
            std::string text(turn % 5 == 4 ? 10'000 : 10, 'x');
            const StopReason reason = co_await client->prompt(std::move(session), std::move(text));
            EXPECT_EQ(reason, StopReason::Kind::endTurn);
        } catch (const ConnectionError& error) {
            ends->push(error.status);
            co_return;
        } catch (const Error&) { // the pipe broke before the news of the end was there
        }
    }
}

asio::awaitable<void> oneLife(asio::any_io_executor executor, int lines)
{
    Pipe input = Pipe::make();
    Pipe output = Pipe::make();
    const std::shared_ptr<PipeTransport> transport =
        PipeTransport::make(executor, std::move(output.reading), std::move(input.writing));
    const auto agent = std::make_shared<test::FakeAgent>(executor, transport);
    const auto delegate = std::make_shared<test::QuickDelegate>(executor);
    std::shared_ptr<ACPClient> client = ACPClient::make(executor, agent, delegate, false);
    const auto ends = std::make_shared<Mailbox<std::int32_t>>(executor);
    std::jthread life([executor, agent, dying = DyingAgent(std::move(input), std::move(output), lines)]() mutable {
        {
            DyingAgent living = std::move(dying);
            living.live();
        }
        asio::post(executor, [agent] { agent->exit(exitStatus); });
    });

    constexpr int conversations = 4;
    for (int count = 0; count < conversations; ++count)
        asio::co_spawn(executor, converse(executor, client, ends), asio::detached);
    try {
        co_await client->initialize();
    } catch (const Error&) { // it died before it could read or answer
    }
    for (int count = 0; count < conversations; ++count) {
        const std::optional<std::int32_t> status = co_await ends->next();
        EXPECT_EQ(status, exitStatus);
    }
    EXPECT_GE(delegate->received, lines > 8 ? 3 : 0);
    const std::weak_ptr<ACPClient> watched = client;
    client.reset();
    while (!watched.expired())
        co_await asio::post(executor, asio::use_awaitable);
}

std::ptrdiff_t openDescriptors()
{
    return std::distance(std::filesystem::directory_iterator("/proc/self/fd"), std::filesystem::directory_iterator());
}

TEST(ACPClientStress, AnAgentThatDiesAmidEverythingResumesEveryone)
{
    ::signal(SIGPIPE, SIG_IGN);
    const std::ptrdiff_t before = openDescriptors();
    for (int round = 0; round < test::stressed(1000); ++round) {
        SCOPED_TRACE(round);
        test::runOnExecutor([round](const asio::any_io_executor& executor) { return oneLife(executor, round % 97); });
        ASSERT_FALSE(testing::Test::HasFailure());
    }
    EXPECT_EQ(openDescriptors(), before);
    ::signal(SIGPIPE, SIG_DFL);
}

} // namespace
} // namespace veltry
