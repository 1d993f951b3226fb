#include "Config/VeltrySettings.h"
#include "Host/Registration/Init.h"
#include "Platform/Files.h"
#include "Projects/ProjectStore.h"
#include "Support/McpProcess.h"
#include "Support/Repository.h"

#include <gmock/gmock.h>

namespace veltry {
namespace {

using test::Repository;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

/// `veltry init` with an application-support folder of its own.
class InitTest : public testing::Test {
protected:
    ChildProcess::Output init(std::vector<std::string> arguments, const std::filesystem::path& directory = "/") const
    {
        arguments.insert(arguments.begin(), "init");
        return test::runProgram(
            test::hostProgram(), arguments,
            {{"XDG_DATA_HOME", data_.path().string()}, {"VELTRY_DATABASE_PATH", database().string()}}, directory);
    }

    std::filesystem::path database() const { return data_ / "a store.sqlite"; }

    std::filesystem::path settings() const { return data_ / "Harrowick Veltry/settings.toml"; }

    test::TemporaryFolder data_;
};

TEST_F(InitTest, RegistersARepositoryAndPrintsABlockThatAClientCanUse)
{
    const Repository repository;
    const ChildProcess::Output output = init({repository.path().string(), "--name", " Digits "});
    EXPECT_EQ(output.exitNumber, 0) << output.error;
    EXPECT_THAT(output.error, HasSubstr("Registered " + repository.path().string() + " as the project Digits"));

    const JSONValue block = JSONValue::parse(output.output);
    const JSONValue& server = *block.find("mcpServers")->find("veltry");
    EXPECT_EQ(*server.find("command")->string(), test::toolsProgram().string());
    std::vector<std::string> arguments;
    for (const JSONValue& argument : *server.find("args")->array())
        arguments.push_back(*argument.string());
    test::McpProcess client(arguments);
    EXPECT_THAT(client.call("experiment_tree"), StartsWith("The tree is empty."));

    EXPECT_EQ(VeltrySettings::load(settings()), VeltrySettings());
    ProjectStore store(database());
    const std::vector<Conversation> conversations = store.conversations(store.projects().at(0).id);
    ASSERT_EQ(conversations.size(), 1u);
    EXPECT_EQ(conversations[0].harness, "Claude Code");
    EXPECT_EQ(arguments.back(), conversations[0].id.text());
}

TEST_F(InitTest, ASecondCallFindsEverythingAgainAndKeepsWhatThePersonWrote)
{
    const Repository repository;
    repository.write("sub/file", "");
    Files::createFolders(settings().parent_path());
    Files::writeAtomically(settings(), "# mine\n[agents]\ndefault = \"Codex\"\n");
    const std::string first = init({}, repository.path()).output;
    const ChildProcess::Output second = init({"sub", "--name", "Other"}, repository.path());
    EXPECT_EQ(second.output, first);
    EXPECT_THAT(second.error, HasSubstr("whose top is the project's folder"));
    EXPECT_THAT(second.error, HasSubstr("is registered already, as the project "));
    EXPECT_THAT(second.error, HasSubstr("To rename it: veltry project rename \"Other\" --project "));
    EXPECT_EQ(Files::read(settings()), "# mine\n[agents]\ndefault = \"Codex\"\n");
    ProjectStore store(database());
    ASSERT_EQ(store.projects().size(), 1u);
    EXPECT_EQ(store.projects()[0].folders.front(), repository.path());
    EXPECT_EQ(store.conversations(store.projects()[0].id).at(0).harness, "Codex");

    EXPECT_EQ(init({repository.path().string(), "--db", (data_ / "new/other.sqlite").string()}).exitNumber, 0);
    EXPECT_EQ(ProjectStore(data_ / "new/other.sqlite").projects().size(), 1u);
}

TEST_F(InitTest, PassesOnWhatAClientWouldKeepAndLetsAWaitOfHalfAnHourThrough)
{
    const Repository repository;
    const auto block = [&](const std::string& client, const std::string& key) {
        const ChildProcess::Output output = test::runProgram(
            test::hostProgram(), {"init", "--client", client, repository.path().string()},
            {{"XDG_DATA_HOME", data_.path().string()}, {"OPENALEX_API_KEY", key}}, "/");
        EXPECT_THAT(
            output.error, HasSubstr(key.empty() ? "OPENALEX_API_KEY isn't set here" : "holds your OPENALEX_API_KEY"));
        return output.output;
    };
    const JSONValue common = *JSONValue::parse(block("common", "a \"key\"")).find("mcpServers")->find("veltry");
    EXPECT_EQ(*common.find("env")->find("OPENALEX_API_KEY")->string(), "a \"key\"");
    EXPECT_EQ(*common.find("env")->find("VELTRY_CLIENT")->string(), "common");
    EXPECT_GT(*common.find("timeout")->number(), 1'800'000);
    EXPECT_THAT(block("common", ""), Not(HasSubstr("OPENALEX_API_KEY")));

    const std::string codex = block("codex", "a \"key\"");
    EXPECT_THAT(codex, StartsWith("[mcp_servers.veltry]\ncommand = \"" + test::toolsProgram().string()));
    EXPECT_THAT(codex, HasSubstr("\ntool_timeout_sec = 1860\n"));
    EXPECT_THAT(
        codex,
        HasSubstr("[mcp_servers.veltry.env]\nOPENALEX_API_KEY = \"a \\\"key\\\"\"\nVELTRY_CLIENT = \"codex\"\n"));

    const JSONValue other = *JSONValue::parse(block("opencode", "k")).find("mcp")->find("veltry");
    EXPECT_EQ(*other.find("environment")->find("OPENALEX_API_KEY")->string(), "k");
    EXPECT_EQ(*other.find("command")->array()->front().string(), test::toolsProgram().string());
}

TEST_F(InitTest, SaysThatThereIsNoCommitYet)
{
    const Repository empty({.identity = true, .commit = false});
    const ChildProcess::Output output = init({empty.path().string()});
    EXPECT_EQ(output.exitNumber, 0);
    EXPECT_THAT(output.error, HasSubstr("has no commit yet. Commit the project's code before the first experiment"));
}

TEST_F(InitTest, RefusesInOneLineAndMakesNothing)
{
    const Repository repository;
    repository.git({"branch", "veltry/a"});
    repository.git({"worktree", "add", "--quiet", ".veltry/worktrees/a", "veltry/a"});
    const std::string plain = data_.path().string();
    const std::string bare = (repository.path() / ".git").string();
    const std::string node = (repository.path() / ".veltry/worktrees/a").string();

    const struct {
        std::vector<std::string> arguments;
        int status;
        std::string error;
    } cases[] = {
        {{"/no/where"},
         1,
         "veltry: There is no folder /no/where. Make it and commit the project's code in it, or name "
         "another: veltry init FOLDER.\n"},
        {{"/dev/null"}, 1, "veltry: /dev/null is not a folder. Name the folder of your project.\n"},
        {{plain},
         1,
         "veltry: " + plain +
             " is not a git repository. Run `git init` there and commit the project's code, "
             "then call veltry init again.\n"},
        {{bare},
         1,
         "veltry: git refuses " + bare +
             ". Do as it says, then call veltry init again. It says: fatal: this operation must be run in a work "
             "tree\n"},
        {{node},
         1,
         "veltry: " + node + " is the worktree of an experiment. Its project is " + repository.path().string() + ".\n"},
        {{"a", "b"}, 2, "veltry: init doesn't take b. veltry init --help tells what it takes.\n"},
        {{"--nme", "x"}, 2, "veltry: "},
    };

    for (const auto& c : cases) {
        SCOPED_TRACE(testing::PrintToString(c.arguments));
        const ChildProcess::Output output = init(c.arguments);
        EXPECT_EQ(output.exitNumber, c.status);
        EXPECT_THAT(output.error, testing::StartsWith(c.error));
        EXPECT_EQ(output.output, "");
    }
    EXPECT_FALSE(Files::exists(database()));
    EXPECT_FALSE(Files::exists(settings()));
}

} // namespace
} // namespace veltry
