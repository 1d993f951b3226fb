#include "ACP/JSONRPCConnection/JSONRPCConnection.h"
#include "ACP/JSONRPCConnection/MemoryTransport.h"
#include "ACP/JSONRPCConnection/PipeTransport.h"
#include "Support/LogLines.h"
#include "Support/RunOnExecutor.h"

#include <asio/post.hpp>
#include <gmock/gmock.h>

#include <unistd.h>

#include <limits>
#include <numeric>
#include <thread>

namespace veltry {
namespace {

using test::LogLines;
using test::runOnExecutor;
using testing::ElementsAre;

/// A connection and the far end of its transport, where the test plays the peer.
struct Peer {
    explicit Peer(const asio::any_io_executor& on) : executor(on)
    {
        const MemoryTransport::Pair ends = MemoryTransport::pair(executor);
        connection = JSONRPCConnection::make(executor, ends.first, false);
        far = ends.second;
    }

    /// Answers "echo" with its params, "fail" with an error, "break" with something that isn't one, and "nan" with what
    /// JSON has no form for; collects notifications.
    void start()
    {
        const auto notified = [this](std::string method, JSONValue params) -> asio::awaitable<void> {
            notifications.push_back(method + " " + params.text());
            co_return;
        };
        const auto answer = [](std::string method, JSONValue params) -> asio::awaitable<JSONValue> {
            if (method == "fail")
                throw JSONRPCError(-32000, "no", JSONValue("why"));
            if (method == "break")
                throw std::runtime_error("broken");
            if (method == "nan")
                co_return std::numeric_limits<double>::quiet_NaN();
            if (method == "echo")
                co_return params;
            throw JSONRPCError::methodNotFound(method);
        };
        connection->start(notified, answer);
    }

    asio::awaitable<void> send(std::string_view line) { return far->send(std::string(line)); }

    asio::awaitable<std::string> receive()
    {
        std::optional<std::string> line = co_await far->lines().next();
        co_return line.value_or("(end)");
    }

    /// What request() ends with, as text.
    asio::awaitable<std::string> outcome(JSONValue params)
    {
        std::string text;
        try {
            const JSONValue result = co_await connection->request("ask", std::move(params));
            text = result.text();
        } catch (const std::exception& error) {
            text = "threw " + describe(error);
        }
        co_return text;
    }

    /// Sends a request, whose outcome is added to `outcomes`.
    void ask(JSONValue params)
    {
        asio::co_spawn(executor, outcome(std::move(params)), [this](std::exception_ptr, std::string text) {
            outcomes.push_back(std::move(text));
        });
    }

    asio::any_io_executor executor;
    std::shared_ptr<JSONRPCConnection> connection;
    std::shared_ptr<MemoryTransport> far;
    std::vector<std::string> notifications;
    std::vector<std::string> outcomes;
};

/// A test of a connection that has been started.
template <typename Body>
void withPeer(Body body)
{
    runOnExecutor([&](const asio::any_io_executor& executor) -> asio::awaitable<void> {
        Peer peer(executor);
        peer.start();
        co_await body(peer);
        co_await peer.far->close();
    });
}

TEST(JSONRPCConnection, AnswersEveryRequestUnderItsOwnId)
{
    const struct {
        std::string_view name, request, answer;
    } cases[] = {
        {"number", R"({"jsonrpc":"2.0","id":7,"method":"echo","params":[1]})",
         R"({"id":7,"jsonrpc":"2.0","result":[1]})"},
        {"any value", R"({"jsonrpc":"1","id":{"x":[]},"method":"echo"})",
         R"({"id":{"x":[]},"jsonrpc":"2.0","result":null})"},
        {"carriage return", "{\"jsonrpc\":\"2.0\",\"id\":1,\"method\":\"echo\"}\r",
         R"({"id":1,"jsonrpc":"2.0","result":null})"},
        {"halves of surrogate pairs",
         R"({"jsonrpc":"2.0","id":1,"method":"echo","params":["\ud83d\ude00\uD83dx\ude00","\\ud800"]})",
         R"({"id":1,"jsonrpc":"2.0","result":["😀�x�","\\ud800"]})"},
        {"error with data", R"({"jsonrpc":"2.0","id":1,"method":"fail"})",
         R"({"error":{"code":-32000,"data":"why","message":"no"},"id":1,"jsonrpc":"2.0"})"},
        {"another failure", R"({"jsonrpc":"2.0","id":1,"method":"break"})",
         R"({"error":{"code":-32603,"message":"broken"},"id":1,"jsonrpc":"2.0"})"},
        {"unknown method", R"({"jsonrpc":"2.0","id":1,"method":"Echo"})",
         R"({"error":{"code":-32601,"message":"method not found: Echo"},"id":1,"jsonrpc":"2.0"})"},
    };

    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        withPeer([&](Peer& peer) -> asio::awaitable<void> {
            co_await peer.send(c.request);
            const std::string answer = co_await peer.receive();
            EXPECT_EQ(answer, c.answer);
        });
    }
}

TEST(JSONRPCConnection, PassesOverWhatIsNoMessageAndGoesOn)
{
    const std::string deep = R"({"jsonrpc":"2.0","id":1,"method":"echo","params":)" + std::string(100'000, '[');

    const struct {
        std::string line, log;
    } cases[] = {
        {"", "skipped a line that is not JSON-RPC (0 bytes)"},
        {"\xFF\xFE", "skipped a line that is not JSON-RPC (2 bytes)"},
        {R"({"id":1,"method":"echo"})", "skipped a line that is not JSON-RPC (24 bytes)"},
        {R"({"jsonrpc":"2.0","id":1,"method":5})", "skipped a line that is not JSON-RPC (35 bytes)"},
        {R"({"jsonrpc":"2.0","id":0,"error":{"code":1.5,"message":""}})",
         "skipped a line that is not JSON-RPC (58 bytes)"},
        {R"({"jsonrpc":"2.0","id":1e999,"method":"echo"})", "skipped a line that is not JSON-RPC (44 bytes)"},
        {R"({"jsonrpc":"2.0","id":"0","result":1})", "skipped a message with neither a method nor a known id"},
        {R"({"jsonrpc":"2.0"})", "skipped a message with neither a method nor a known id"},
        {deep, "skipped a line that is not JSON-RPC (100049 bytes)"},
    };

    for (const auto& c : cases) {
        SCOPED_TRACE(c.line.substr(0, 80));
        LogLines log("jsonrpc");
        withPeer([&](Peer& peer) -> asio::awaitable<void> {
            co_await peer.send(c.line);
            co_await peer.send(R"({"jsonrpc":"2.0","id":2,"method":"echo"})");
            const std::string answer = co_await peer.receive();
            EXPECT_EQ(answer, R"({"id":2,"jsonrpc":"2.0","result":null})");
        });
        EXPECT_THAT(log.lines, ElementsAre(c.log));
    }
}

TEST(JSONRPCConnection, ANotificationWithANullIdIsHandledInOrder)
{
    withPeer([](Peer& peer) -> asio::awaitable<void> {
        co_await peer.send(R"({"jsonrpc":"2.0","method":"a","params":{"x":1}})");
        co_await peer.send(R"({"jsonrpc":"2.0","id":null,"method":"b"})");
        co_await peer.send(R"({"jsonrpc":"2.0","id":1,"method":"echo"})");
        co_await peer.receive();
        EXPECT_THAT(peer.notifications, ElementsAre(R"(a {"x":1})", "b null"));
    });
}

TEST(JSONRPCConnection, ResumesARequestWithItsAnswer)
{
    const struct {
        std::string_view name, answer, outcome;
    } cases[] = {
        {"result", R"({"jsonrpc":"2.0","id":0,"result":{"a":1}})", R"({"a":1})"},
        {"cut id", R"({"jsonrpc":"2.0","id":0.9,"result":1})", "1"},
        {"neither", R"({"jsonrpc":"2.0","id":0})", "null"},
        {"null error", R"({"jsonrpc":"2.0","id":0,"result":2,"error":null})", "2"},
        {"both", R"({"jsonrpc":"2.0","id":0,"result":1,"error":{"code":-5,"message":"no"}})", "threw no (-5)"},
    };

    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        withPeer([&](Peer& peer) -> asio::awaitable<void> {
            peer.ask(JSONValue::object({}));
            const std::string line = co_await peer.receive();
            EXPECT_EQ(line, R"({"id":0,"jsonrpc":"2.0","method":"ask","params":{}})");
            // Ids that name no request are passed over without harm.
            co_await peer.send(R"({"jsonrpc":"2.0","id":12,"result":1})");
            co_await peer.send(R"({"jsonrpc":"2.0","id":1e300,"result":1})");
            co_await peer.send(c.answer);
            co_await peer.send(R"({"jsonrpc":"2.0","id":"x","method":"echo"})");
            co_await peer.receive(); // everything before it has been handled
            EXPECT_THAT(peer.outcomes, ElementsAre(c.outcome));
        });
    }
}

TEST(JSONRPCConnection, AResultThatJSONCannotHoldIsLoggedAndNotAnswered)
{
    LogLines log("jsonrpc");
    withPeer([](Peer& peer) -> asio::awaitable<void> {
        co_await peer.send(R"({"jsonrpc":"2.0","id":1,"method":"nan"})");
        co_await peer.send(R"({"jsonrpc":"2.0","id":2,"method":"echo"})");
        const std::string answer = co_await peer.receive();
        EXPECT_EQ(answer, R"({"id":2,"jsonrpc":"2.0","result":null})");
    });
    EXPECT_THAT(log.lines, ElementsAre("could not answer nan: JSON has no form for a number that isn't finite"));
}

TEST(JSONRPCConnection, TheEndOfInputFailsWhatWaitsAndWhatComesAfter)
{
    withPeer([](Peer& peer) -> asio::awaitable<void> {
        for (int index = 0; index < 3; ++index)
            peer.ask(index);
        co_await peer.receive();
        co_await peer.far->close();
        const std::string last = co_await peer.outcome(3);
        EXPECT_EQ(last, "threw the connection is closed");
        EXPECT_EQ(peer.outcomes, std::vector<std::string>(3, "threw the connection is closed"));
        EXPECT_THROW(peer.connection->notify("late", nullptr), ConnectionError);
    });
}

TEST(JSONRPCConnection, AFailedWriteReachesItsOwnRequestAlone)
{
    LogLines log("jsonrpc");
    runOnExecutor([](const asio::any_io_executor& executor) -> asio::awaitable<void> {
        Peer peer(executor);
        const auto alone = std::make_shared<MemoryTransport>(executor);
        peer.connection = JSONRPCConnection::make(executor, alone, false);
        peer.start();
        peer.connection->notify("lost", nullptr);
        const std::string failed = co_await peer.outcome(0);
        EXPECT_EQ(failed, "threw the connection is closed");
        EXPECT_TRUE(peer.connection->isOpen());
        co_await alone->close();
    });
    EXPECT_THAT(log.lines, ElementsAre("could not send a notification: the connection is closed"));
}

/// Small lines go out at once where they can, and large ones by a thread: neither may overtake the other.
TEST(JSONRPCConnection, SmallAndLargeLinesOverAPipeKeepTheirOrder)
{
    std::vector<std::int64_t> sent(300);
    std::iota(sent.begin(), sent.end(), 0);
    std::vector<std::int64_t> received;
    runOnExecutor([&](const asio::any_io_executor& executor) -> asio::awaitable<void> {
        Pipe input = Pipe::make();
        Pipe output = Pipe::make();
        const auto transport = PipeTransport::make(executor, std::move(input.reading), std::move(output.writing));
        const auto connection = JSONRPCConnection::make(executor, transport, false);
        connection->start({}, {});
        std::jthread reader([&, source = output.reading.get()] {
            LineSplitter splitter;
            char buffer[4096];
            while (received.size() < sent.size()) {
                const ssize_t count = ::read(source, buffer, sizeof buffer);
                for (const std::string& line : splitter.add({buffer, static_cast<std::size_t>(count)}))
                    received.push_back(JSONValue::parse(line).find("params")->array()->front().integer().value_or(-1));
            }
        });
        for (const std::int64_t number : sent) {
            const std::size_t size = number % 100 == 9 ? 1'000'000 : number % 3 == 0 ? 6000 : 1;
            connection->notify("n", JSONValue::array({number, std::string(size, 'x')}));
            if (number % 50 > 25) // the queue runs empty now and then
                co_await connection->flush();
            else if (size > 1) // and what comes next meets a line that a thread is writing
                co_await asio::post(executor, asio::use_awaitable);
        }
        co_await connection->flush();
        reader.join();
        co_await transport->close();
    });
    EXPECT_EQ(received, sent);
}

TEST(JSONRPCConnection, WithTrafficLoggedEveryLineIsShownBothWays)
{
    LogLines traffic("acp");
    runOnExecutor([](const asio::any_io_executor& executor) -> asio::awaitable<void> {
        const MemoryTransport::Pair ends = MemoryTransport::pair(executor);
        const auto connection = JSONRPCConnection::make(executor, ends.first, true);
        connection->start({}, {});
        connection->notify("hello", nullptr);
        co_await ends.second->lines().next();
        co_await ends.second->send("caf\xE9");
        co_await ends.second->close();
        co_await connection->flush();
    });
    EXPECT_THAT(
        traffic.lines, testing::IsSupersetOf({
                           std::string(R"(→ {"jsonrpc":"2.0","method":"hello","params":null})"),
                           std::string("← caf\uFFFD"),
                       }));
}

} // namespace
} // namespace veltry
