#include "Platform/Files.h"
#include "Support/HostLab.h"
#include "Support/PseudoTerminal.h"

#include <gmock/gmock.h>

namespace veltry {
namespace {

using testing::HasSubstr;
using testing::Not;

class ProjectCommandsTest : public testing::Test {
protected:
    Conversation talk(const std::string& title) const
    {
        return lab_.store->createConversation(lab_.lab.project.id, title, "Agent");
    }

    const test::HostLab lab_;
    const std::string name_ = lab_.lab.project.name;
};

TEST_F(ProjectCommandsTest, RenamesArchivesAndFindsConversations)
{
    const Conversation first = talk("First");
    const Conversation second = talk("Second \033[2J");
    lab_.store->saveTranscript(first.id, R"([{"id":"1","kind":"agent","text":"Warm-up helps."}])");
    EXPECT_EQ(lab_.veltry({"conversations", "rename", first.id.text().substr(0, 8), " Rates "}).exitNumber, 0);
    EXPECT_EQ(lab_.veltry({"conversations", "archive", second.id.text()}).exitNumber, 0);
    EXPECT_EQ(lab_.json({"conversations"}).array()->size(), 1u);
    EXPECT_EQ(lab_.json({"conversations", "--archived"}).array()->size(), 2u);
    const std::string listed = lab_.veltry({"conversations", "--archived"}).output;
    EXPECT_THAT(listed, HasSubstr("Rates"));
    EXPECT_THAT(listed, HasSubstr("archived"));
    EXPECT_THAT(listed, Not(HasSubstr("\033")));
    EXPECT_EQ(lab_.veltry({"conversations", "restore", second.id.text()}).exitNumber, 0);
    EXPECT_EQ(lab_.json({"conversations"}).array()->size(), 2u);
    EXPECT_THAT(lab_.veltry({"conversations", "rename", "Rats", "x"}).error, HasSubstr("Did you mean Rates?"));
    EXPECT_EQ(lab_.veltry({"conversations", "rename", "Rates", " "}).exitNumber, 2);
    for (const Conversation& conversation : lab_.store->conversations(lab_.lab.project.id))
        if (conversation.id == first.id) {
            EXPECT_EQ(conversation.title, "Rates");
        }
}

TEST_F(ProjectCommandsTest, ListsConversationsUnlessCollapsed)
{
    for (const char* title : {"One", "Two", "Three", "Four"})
        talk(title);
    const std::string expanded = lab_.veltry({"projects"}).output;
    EXPECT_THAT(expanded, HasSubstr("└ Four"));
    EXPECT_THAT(expanded, HasSubstr("└ 1 more: veltry conversations"));
    EXPECT_EQ(lab_.veltry({"projects", "collapse"}).exitNumber, 0);
    EXPECT_THAT(lab_.veltry({"projects"}).output, Not(HasSubstr("Four")));
    EXPECT_EQ(lab_.veltry({"projects", "expand"}).exitNumber, 0);
    EXPECT_EQ(lab_.veltry({"projects"}).output, expanded);
}

TEST_F(ProjectCommandsTest, AddsFoldersOnce)
{
    Files::createFolders(lab_ / "more");
    for (int time = 0; time < 2; ++time)
        EXPECT_EQ(lab_.veltry({"project", "add-folder", (lab_ / "more/.").string()}).exitNumber, 0);
    EXPECT_EQ(lab_.store->projects().at(0).folders.size(), 2u);
    EXPECT_EQ(lab_.veltry({"project", "add-folder", "/no/where"}).error, "veltry: There is no folder /no/where.\n");
}

TEST_F(ProjectCommandsTest, ANameOfSeveralConversationsIsRefusedAndOneIsShown)
{
    const Conversation first = talk("Same");
    EXPECT_THAT(lab_.veltry({"conversations", "show", "Same"}).error, HasSubstr("Nothing was said in Same yet."));
    lab_.store->saveTranscript(
        first.id,
        R"([{"id":"1","kind":{"user":{"_0":"Hello\u001b"}}},{"id":"2","kind":{"tool":{"_0":{"title":"ls"}}}}])");
    EXPECT_EQ(lab_.words({"conversations", "show", "Same"}), "user\n Hello\uFFFD\n\n [] ls\n\n");
    const Conversation second = talk("Same");
    EXPECT_THAT(
        lab_.veltry({"conversations", "archive", "Same"}).error,
        HasSubstr("2 conversations match \"Same\". Name one by its id or more of the start of it: " + first.id.text()));
    EXPECT_EQ(lab_.json({"conversations", "show", first.id.text()}).find("items")->array()->size(), 2u);
}

TEST_F(ProjectCommandsTest, AMovedProjectKeepsItsHistoryAndItsWorktrees)
{
    const Experiment node = lab_.baseline("true");
    const std::filesystem::path moved = lab_ / "moved";
    const auto there = [&](std::vector<std::string> arguments) {
        arguments.insert(arguments.end(), {"--project", name_});
        return test::runProgram(test::hostProgram(), arguments, lab_.environment(), "/");
    };
    EXPECT_THAT(there({"project", "move", (lab_ / ".").string()}).error, HasSubstr("is not a git repository"));
    std::filesystem::rename(lab_.repository.path(), moved);
    EXPECT_THAT(there({"tree"}).output, HasSubstr(node.title));
    EXPECT_EQ(there({"project", "move", moved.string() + "/"}).exitNumber, 0);
    EXPECT_EQ(lab_.store->projects().at(0).folders.front(), moved);
    EXPECT_EQ(Git(moved / ".veltry/worktrees" / node.slug).run({"status", "--porcelain"}), "");
    std::filesystem::create_symlink(moved, lab_ / "link");
    lab_.store->moveProject(lab_.lab.project.id, lab_ / "link"); // as another program may have stored it
    EXPECT_EQ(test::runProgram(test::hostProgram(), {"tree"}, lab_.environment(), moved).exitNumber, 0);
    EXPECT_EQ(test::runProgram(test::hostProgram(), {"init"}, lab_.environment(), moved).exitNumber, 0);
    EXPECT_EQ(lab_.store->projects().size(), 1u);
    std::filesystem::rename(moved, lab_.repository.path());
}

TEST_F(ProjectCommandsTest, RemovesOnlyAfterAYesAndTouchesNoFile)
{
    const Experiment node = lab_.baseline("true");
    lab_.insertFinished(node);
    const std::filesystem::path worktree = lab_.lab.worktree(node);
    const ChildProcess::Output silent = lab_.veltry({"project", "remove"});
    EXPECT_EQ(silent.exitNumber, 1);
    EXPECT_THAT(silent.error, HasSubstr("takes 1 node, 1 run and 0 conversations out of the store"));
    EXPECT_THAT(silent.error, HasSubstr("To remove without asking: --yes."));
    for (const auto& [keys, status] : {std::pair("\n", 1), std::pair("\003", 130), std::pair("\004", 1)}) {
        test::PseudoTerminal asked(
            test::hostProgram(), {"project", "remove"}, lab_.environment(), lab_.repository.path());
        ASSERT_TRUE(asked.shows("[y/N] "));
        asked.type(keys);
        EXPECT_EQ(asked.wait(), status);
    }
    ASSERT_EQ(lab_.store->projects().size(), 1u);

    const veltry::Run going = lab_.store->insertRun(UUID::random(), node, "0123", lab_ / "Runs/going");
    EXPECT_THAT(lab_.veltry({"project", "remove", "--yes"}).error, HasSubstr("1 run of " + name_ + " is still going."));
    lab_.store->finishRun(going.id, veltry::Run::Status::cancelled, std::nullopt, std::nullopt);
    EXPECT_EQ(lab_.veltry({"project", "remove", "--yes"}).exitNumber, 0);
    EXPECT_TRUE(lab_.store->projects().empty());
    EXPECT_TRUE(Files::isFolder(worktree));
}

} // namespace
} // namespace veltry
