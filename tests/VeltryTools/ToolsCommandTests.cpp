#include "Platform/Files.h"
#include "Projects/Database.h"
#include "Support/TestLab.h"

#include <gmock/gmock.h>

namespace veltry {
namespace {

using test::runProgram;
using test::TestLab;

TEST(ToolsCommand, EndsWithAStatusAndASentence)
{
    const TestLab test;
    const std::string db = test.database().string();
    const std::string project = test.lab.project.id.text();
    std::string lower = project;
    for (char& c : lower)
        c = static_cast<char>(std::tolower(c));
    const std::string folderless = test.lab.store->createProject("Bare", {"/gone"}).id.text();
    Database(db).write([](Connection& store) { store.execute("DELETE FROM project_folder WHERE path = '/gone'"); });
    const std::string usage = "usage: veltry-tools mcp|supervise --db <path> …\n";

    const struct {
        std::vector<std::string> arguments;
        int status;
        std::string error;
    } cases[] = {
        {{}, 2, usage},
        {{"help"}, 2, usage},
        {{"--db", "x", "mcp"}, 2, usage},
        {{"mcp", "x", "--db"}, 1, "veltry-tools: missing_option: Pass --db.\n"},
        {{"mcp", "--db", "--project", project}, 1, "veltry-tools: missing_option: Pass --project.\n"},
        {{"mcp", "--db", db}, 1, "veltry-tools: missing_option: Pass --project.\n"},
        {{"mcp", "--db", db, "--project", lower}, 1, "veltry-tools: project_not_found: No project " + lower + ".\n"},
        {{"mcp", "--db", db, "--project", folderless},
         1,
         "veltry-tools: The project Bare has no folder. Add its repository: veltry project "
         "add-folder.\n"},
        {{"mcp", "--db", "", "--project", project}, 1, "veltry-tools: missing_option: Pass --db.\n"},
        {{"mcp", "--db", db, "--project", project, "--settings", ""}, 0, ""},
        {{"supervise", "--run", "x"}, 1, "veltry-tools: missing_option: Pass --db.\n"},
        {{"supervise", "--db", db}, 1, "veltry-tools: missing_option: Pass --run.\n"},
        {{"supervise", "--db", db, "--run", "7"}, 1, "veltry-tools: run_not_found: --run takes a run's id.\n"},
        {{"supervise", "--db", db, "--run", project}, 0, ""}, // no such run: nothing to do
        {{"mcp", "--db", db, "--project", project, "--conversation", "x", "--settings", "/none", "--new", "y"}, 0, ""},
    };

    for (const auto& c : cases) {
        SCOPED_TRACE(testing::PrintToString(c.arguments));
        const ChildProcess::Output output = runProgram(test::toolsProgram(), c.arguments, {}, test / "");
        EXPECT_EQ(output.exitNumber, c.status);
        EXPECT_EQ(output.error, c.error);
        EXPECT_EQ(output.output, "");
    }
    EXPECT_TRUE(Files::exists(test / "--project")) << "the store is opened before the mode's own option is looked at";
}

TEST(ToolsCommand, OpensTheLastStoreNamedAndTellsWhatIsWrongWithIt)
{
    const TestLab test;
    Files::writeAtomically(test / "text", "this is no database, and long enough to be seen as none");
    const ChildProcess::Output output = runProgram(
        test::toolsProgram(),
        {"mcp", "--db", test.database().string(), "--db", (test / "text").string(), "--project", "P"});
    EXPECT_EQ(output.exitNumber, 1);
    EXPECT_THAT(output.error, testing::StartsWith("veltry-tools: SQLite error 26: file is not a database"));
    EXPECT_EQ(Files::read(test / "text"), "this is no database, and long enough to be seen as none");
}

TEST(ToolsCommand, TheEndOfInputEndsTheServerAndDropsWhatWaits)
{
    const TestLab test;
    const Experiment node = test.baseline("sleep 60");
    test.lab.launch(node.id, 0);
    test::McpProcess server = test.serve();
    const std::int64_t wait = server.sendCall("wait_for_runs");
    EXPECT_EQ(server.request("ping").text(), "{}") << "the wait holds up nobody";
    const std::int64_t ping = server.send("ping");
    server.closeInput();
    EXPECT_TRUE(server.answer(ping).find("result"));
    EXPECT_EQ(server.receive(), std::nullopt) << "request " << wait << " is dropped";
    EXPECT_EQ(server.wait(), 0);
    EXPECT_FALSE(test.lab.run(1).isFinished()) << "the run goes on without its server";
}

} // namespace
} // namespace veltry
