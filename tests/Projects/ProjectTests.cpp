#include "StoreSupport.h"

namespace veltry::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::UnorderedElementsAre;
using Folders = std::vector<std::filesystem::path>;

std::string item(std::string_view id, std::string_view kind, std::string_view text)
{
    const JSONValue payload = JSONValue::object({{"_0", text}});
    return JSONValue::object({{"id", id}, {"kind", JSONValue::object({{std::string(kind), payload}})}}).text();
}

class ProjectTest : public StoreTest {
protected:
    Conversation makeConversation(const UUID& projectID, const std::string& items)
    {
        Conversation made = store.createConversation(projectID, "title", "codex");
        store.saveTranscript(made.id, items);
        return made;
    }
};

TEST_F(ProjectTest, NamesAndFolders)
{
    const struct {
        std::string_view label, name;
        Folders folders;
        std::string_view expectedName;
        Folders expectedFolders;
    } cases[] = {
        {"named by its folder", "  ", {"/a/b/"}, "b", {"/a/b"}},
        {"trimmed", "\n my project\t", {"/a"}, "my project", {"/a"}},
        {"folders once", "n", {"/a/x", "/a//b/../x/.", "/a/y"}, "n", {"/a/x", "/a/y"}},
        {"root", "", {"/.."}, "/", {"/"}},
    };

    std::vector<Project> made;
    for (const auto& c : cases) {
        SCOPED_TRACE(c.label);
        made.push_back(store.createProject(c.name, c.folders));
        EXPECT_EQ(made.back().name, c.expectedName);
        EXPECT_EQ(made.back().folders, c.expectedFolders);
    }
    EXPECT_EQ(store.projects(), made);
    EXPECT_THROW(store.createProject("none", {}), ProjectStoreError);
    EXPECT_EQ(store.projects(), made);
}

TEST_F(ProjectTest, Updates)
{
    Project project = store.createProject("old", {"/a"});
    store.renameProject(project.id, "  ");
    EXPECT_EQ(store.projects().front().name, "old");
    store.renameProject(project.id, " new ");
    store.dismissImport(project.id);
    store.setCollapsed(project.id, true);
    store.addFolder("/b/", project.id);
    store.addFolder("/a/.", project.id);
    project = {project.id, "new", {"/a", "/b"}, project.createdAt, true, true};
    EXPECT_THAT(store.projects(), ElementsAre(project));

    execute("UPDATE project_folder SET position = 7 WHERE path = '/a'");
    store.addFolder("/c", project.id);
    EXPECT_EQ(store.projects().front().folders, (Folders{"/b", "/a", "/c"}));
    EXPECT_THROW(store.addFolder("/a", UUID::random()), DatabaseError);

    execute("PRAGMA foreign_keys = OFF; UPDATE project SET id = 'damaged'");
    EXPECT_THAT(store.projects(), IsEmpty());
}

TEST_F(ProjectTest, RemovalTakesEverythingAlong)
{
    const UUID project = store.createProject("p", {"/p"}).id;
    const UUID kept = store.createProject("kept", {"/k"}).id;
    for (const UUID& id : {project, kept}) {
        const Conversation chat = makeConversation(id, "[" + item("1", "user", "hello") + "]");
        store.ask({{.question = "?"}}, chat.id);
        const Experiment node = insertExperiment(id, "node");
        store.insertRun(UUID::random(), node, "c", "/r");
        store.cite({.id = "W1", .title = "t", .url = "u"}, node.id, "why");
    }
    store.removeProject(project);
    store.removeProject(project);
    for (const std::string table :
         {"project", "project_folder", "project_paper", "conversation", "conversation_transcript", "conversation_text",
          "question", "experiment", "citation", "run"})
        EXPECT_THAT(rows("SELECT count(*) FROM " + table), ElementsAre("1")) << table;
}

TEST_F(ProjectTest, Conversations)
{
    const UUID project = store.createProject("p", {"/p"}).id;
    Conversation first = store.createConversation(project, "one", "claude");
    const std::vector<PastConversation> past = {{"two", "s2", {5}}, {"three", "s3", {5}}};
    const std::vector<Conversation> imported = store.importConversations(past, project, "codex");
    EXPECT_THAT(store.conversations(project), ElementsAre(imported[0], imported[1], first));
    EXPECT_EQ(imported[1].agentSessionID, "s3");

    store.retitleConversation(first.id, "new");
    store.setAgentSession(first.id, "session");
    store.setConversationArchived(first.id, true);
    const Conversation archived = store.conversations(project).back();
    EXPECT_TRUE(archived.archivedAt);
    EXPECT_EQ(archived.agentSessionID, "session");
    store.setConversationArchived(first.id, false);
    store.setHarness(first.id, "claude"); // forgets the session
    first.title = "new";
    EXPECT_EQ(store.conversations(project).back(), first);

    EXPECT_THROW(store.createConversation(UUID::random(), "", ""), DatabaseError);
    EXPECT_THROW(store.importConversations(past, UUID::random(), ""), DatabaseError);
    EXPECT_EQ(store.conversations(project).size(), 3U);
}

TEST_F(ProjectTest, Transcripts)
{
    const UUID project = store.createProject("p", {"/p"}).id;
    const Conversation chat = store.createConversation(project, "", "");
    EXPECT_EQ(store.transcript(chat.id), std::nullopt);
    const std::string bytes("\xFF\0 no JSON", 10);
    for (const std::string& items : {bytes, std::string(), "[" + item("1", "user", "hi") + "]"}) {
        store.saveTranscript(chat.id, items);
        EXPECT_EQ(store.transcript(chat.id), items);
    }
    store.saveTranscript(UUID::random(), "[]");
    EXPECT_THAT(rows("SELECT count(*) FROM conversation_transcript"), ElementsAre("1"));
    EXPECT_THAT(rows("SELECT typeof(items) FROM conversation_transcript"), ElementsAre("blob"));
}

TEST_F(ProjectTest, Search)
{
    const UUID project = store.createProject("p", {"/p"}).id;
    const UUID chat =
        makeConversation(
            project, "[" + item("1", "user", "Foobar bazaar") + "," + item("2", "agent", "Über C++ and \"quotes\"") +
                         "," + item("3", "tool", "hidden") + "]")
            .id;
    makeConversation(project, "[" + item("9", "user", "replaced") + "]");
    const UUID second = store.conversations(project).back().id;
    store.saveTranscript(second, "[" + item("1", "user", "foobar only") + "," + item("2", "user", "bazaar only") + "]");

    const struct {
        std::string_view name;
        std::vector<std::string> terms;
        std::vector<std::string> hits; ///< ids of the first conversation's items
    } cases[] = {
        {"prefixes in one item", {"foo", "ba"}, {"1"}},
        {"case and diacritics", {"UBER"}, {"2"}},
        {"letters among signs", {"c++"}, {"2"}},
        {"no letters", {"...", "--"}, {}},
        {"signs are dropped", {"...", "quotes"}, {"2"}},
        {"quotes and operators", {"\"quotes\" OR", "NEAR("}, {}},
        {"NUL", {std::string("u\0quo", 5)}, {}},
        {"not UTF-8", {"\xFFuber"}, {"2"}},
        {"other kinds", {"hidden"}, {}},
        {"old text", {"replaced"}, {}},
    };

    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        std::vector<std::string> hits;
        for (const SaidMatch& match : store.said(c.terms)) {
            EXPECT_EQ(match.conversationID, chat);
            hits.push_back(match.itemID);
        }
        EXPECT_EQ(hits, c.hits);
    }
    const std::vector<std::string> term = {"foobar"};
    EXPECT_THAT(
        store.said(term),
        UnorderedElementsAre(SaidMatch{chat, "1", "Foobar bazaar"}, SaidMatch{second, "1", "foobar only"}));
}

} // namespace
} // namespace veltry::test
