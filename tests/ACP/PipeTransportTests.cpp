#include "ACP/JSONRPCConnection/ConnectionError.h"
#include "ACP/JSONRPCConnection/LineSplitter.h"
#include "ACP/JSONRPCConnection/PipeTransport.h"
#include "Platform/Files.h"
#include "Platform/SystemError.h"
#include "Support/EventuallyOnExecutor.h"
#include "Support/RunOnExecutor.h"
#include "Support/TemporaryFolder.h"

#include <asio/detached.hpp>
#include <gmock/gmock.h>

#include <fcntl.h>

#include <csignal>

namespace veltry {
namespace {

using test::runOnExecutor;
using testing::ElementsAre;

/// A transport with the far ends of both its pipes.
struct Ends {
    explicit Ends(const asio::any_io_executor& executor)
    {
        std::signal(SIGPIPE, SIG_IGN);
        Pipe input = Pipe::make();
        Pipe output = Pipe::make();
        toTransport = std::move(input.writing);
        fromTransport = std::move(output.reading);
        transport = PipeTransport::make(executor, std::move(input.reading), std::move(output.writing));
    }

    FileDescriptor toTransport;
    FileDescriptor fromTransport;
    std::shared_ptr<PipeTransport> transport;
};

asio::awaitable<std::vector<std::string>> allLines(LineTransport& transport)
{
    std::vector<std::string> lines;
    while (std::optional<std::string> line = co_await transport.lines().next())
        lines.push_back(std::move(*line));
    co_return lines;
}

TEST(PipeTransport, ReadsFromPipesAndPlainFilesAlikeAndDropsAnUnfinishedLastLine)
{
    const std::string input = "one\n\ntwo\nunfinished";
    const test::TemporaryFolder folder;
    Files::writeAtomically(folder / "input", input);
    const auto viaPipe = [&] {
        Pipe pipe = Pipe::make();
        Files::writeAll(pipe.writing, input, "the pipe");
        return std::move(pipe.reading);
    };
    const auto read = [](FileDescriptor source) {
        std::vector<std::string> lines;
        runOnExecutor([&](const asio::any_io_executor& executor) -> asio::awaitable<void> {
            const auto transport =
                PipeTransport::make(executor, std::move(source), Files::open("/dev/null", Files::forWriting));
            lines = co_await allLines(*transport);
        });
        return lines;
    };
    EXPECT_THAT(read(viaPipe()), ElementsAre("one", "", "two"));
    EXPECT_THAT(read(Files::open(folder / "input", Files::forReading)), ElementsAre("one", "", "two"));
    EXPECT_THAT(read(Files::open("/dev/null", Files::forReading)), ElementsAre());
}

TEST(PipeTransport, LeavesTheFlagsOfSharedDescriptorsAlone)
{
    Pipe input = Pipe::make();
    Pipe output = Pipe::make();
    const FileDescriptor shared = input.reading.duplicate();
    const FileDescriptor sharedOut = output.writing.duplicate();
    runOnExecutor([&](const asio::any_io_executor& executor) -> asio::awaitable<void> {
        const auto transport = PipeTransport::make(executor, std::move(input.reading), std::move(output.writing));
        Files::writeAll(input.writing, "line\n", "the pipe");
        co_await transport->lines().next();
        co_await transport->send("answer");
        EXPECT_EQ(::fcntl(shared.get(), F_GETFL) & O_NONBLOCK, 0);
        EXPECT_EQ(::fcntl(sharedOut.get(), F_GETFL) & O_NONBLOCK, 0);
    });
}

TEST(PipeTransport, ClosingResumesASendThatWaitsForItsPeer)
{
    runOnExecutor([](const asio::any_io_executor& executor) -> asio::awaitable<void> {
        Ends ends(executor);
        bool failed = false;
        const auto sendLarge = [](std::shared_ptr<PipeTransport> transport, bool& closed) -> asio::awaitable<void> {
            try {
                co_await transport->send(std::string(1'000'000, 'x'));
            } catch (const ConnectionError& error) {
                closed = error.kind == ConnectionError::Kind::closed;
            }
        };
        asio::co_spawn(executor, sendLarge(ends.transport, failed), asio::detached);
        asio::steady_timer pause(
            executor, std::chrono::milliseconds(20)); // lets the write begin; either way it must end
        co_await pause.async_wait(asio::use_awaitable);
        co_await ends.transport->close();
        const std::optional<std::string> line = co_await ends.transport->lines().next();
        EXPECT_EQ(line, std::nullopt);
        const std::function<bool()> hasFailed = [&] { return failed; };
        const bool ended = co_await test::eventuallyOnExecutor(hasFailed);
        EXPECT_TRUE(ended);
    });
}

TEST(PipeTransport, APeerThatWentAwayIsAFailedSend)
{
    runOnExecutor([](const asio::any_io_executor& executor) -> asio::awaitable<void> {
        Ends ends(executor);
        ends.fromTransport.reset();
        for (const std::size_t size : {10u, 100'000u}) { // at once, and by the writer's thread
            int code = 0;
            try {
                co_await ends.transport->send(std::string(size, 'x'));
            } catch (const SystemError& error) {
                code = error.code;
            }
            EXPECT_EQ(code, EPIPE) << size << " bytes";
        }
    });
}

TEST(LineSplitter, ScansALongLineOnce)
{
    LineSplitter splitter;
    const std::string chunk(1000, 'x');
    for (int index = 0; index < 50'000; ++index) // 50 MB; scanned anew at each chunk it would take hours
        ASSERT_THAT(splitter.add(chunk), ElementsAre());
    EXPECT_EQ(splitter.add("\n").at(0).size(), 50'000'000U);
}

} // namespace
} // namespace veltry
