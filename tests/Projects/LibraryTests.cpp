#include "StoreSupport.h"

namespace veltry::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;
using testing::UnorderedElementsAre;

Paper makePaper(const std::string& id)
{
    return Paper{
        .id = id,
        .title = "A \"title\" / of " + id,
        .authors = {"Ada", "Zoë"},
        .year = 2017,
        .citations = 3,
        .doi = "10.1/x",
        .url = "https://example.org/" + id,
    };
}

class LibraryTest : public StoreTest {
protected:
    UUID project = store.createProject("p", {"/p"}).id;
    UUID elsewhere = store.createProject("q", {"/q"}).id;
    Paper one = makePaper("W1");
    Paper two = makePaper("W2");
};

TEST_F(LibraryTest, TheFirstSaveOfAPaperCounts)
{
    store.savePaper(one);
    store.savePaper(two, project);
    Paper changed = one;
    changed.title = "fresher";
    store.savePaper(changed, project);
    EXPECT_THAT(store.libraryPapers(), ElementsAre(two, one));
    EXPECT_THAT(store.libraryPapers(project), ElementsAre(one, two));
    EXPECT_THAT(store.libraryPapers(elsewhere), IsEmpty());
    EXPECT_THAT(store.projectPapers(), UnorderedElementsAre(Pair(project, ElementsAre("W1", "W2"))));
    EXPECT_THROW(store.savePaper(makePaper("W3"), UUID::random()), DatabaseError);
    EXPECT_THAT(store.libraryPapers(), ElementsAre(two, one)); // the failed save left nothing

    execute("UPDATE library_paper SET saved_at = 1");
    EXPECT_THAT(store.libraryPapers(), ElementsAre(two, one)); // of equal dates the later row comes first
}

TEST_F(LibraryTest, KeepsPapersAsTheirJSON)
{
    store.savePaper(one);
    EXPECT_THAT(
        rows("SELECT paper FROM library_paper"),
        ElementsAre(R"({"authors":["Ada","Zoë"],"citations":3,"doi":"10.1\/x","id":"W1",)"
                    R"("title":"A \"title\" \/ of W1","url":"https:\/\/example.org\/W1","year":2017})"));

    const struct {
        std::string_view name, json;
        bool reads;
    } cases[] = {
        {"least", R"({"id":"W","title":"","authors":[],"citations":0,"url":"u"})", true},
        {"null counts as absent", R"({"id":"W","title":"","authors":[],"citations":0,"url":"u","year":null})", true},
        {"no citations", R"({"id":"W","title":"","authors":[],"url":"u"})", false},
        {"empty address", R"({"id":"W","title":"","authors":[],"citations":0,"url":""})", false},
        {"half a citation", R"({"id":"W","title":"","authors":[],"citations":0.5,"url":"u"})", false},
        {"author without a name", R"({"id":"W","title":"","authors":[null],"citations":0,"url":"u"})", false},
        {"no JSON", "{", false},
    };

    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        execute("UPDATE library_paper SET paper = ?", c.json);
        EXPECT_EQ(store.libraryPapers().size(), c.reads ? 1U : 0U);
    }
}

TEST_F(LibraryTest, FindsAPaperByItsIDWhereTheListsHoldIt)
{
    store.savePaper(one, project);
    EXPECT_EQ(store.libraryPaper("W1"), one);
    EXPECT_EQ(store.libraryPaper("w1"), std::nullopt);
    EXPECT_EQ(store.libraryPaper("W1", project), one);
    EXPECT_EQ(store.libraryPaper("W1", elsewhere), std::nullopt);
    execute("UPDATE library_paper SET paper = replace(paper, 'W1', 'W7')"); // another program's key
    EXPECT_EQ(store.libraryPaper("W7")->title, "A \"title\" / of W7");
    EXPECT_EQ(store.libraryPaper("W7", project)->id, "W7");
    EXPECT_EQ(store.libraryPaper("W1"), std::nullopt);
    execute("UPDATE library_paper SET paper = '{}'");
    EXPECT_EQ(store.libraryPaper("W1", project), std::nullopt);
}

TEST_F(LibraryTest, RemovalLeavesCitations)
{
    const Experiment node = insertExperiment(project, "node");
    store.cite(one, node.id, "why");
    store.savePaper(one, elsewhere);
    store.removePaper("W1", project);
    EXPECT_THAT(store.projectPapers(), UnorderedElementsAre(Pair(elsewhere, ElementsAre("W1"))));
    EXPECT_THAT(store.libraryPapers(), ElementsAre(one));
    store.removePaper("W1");
    EXPECT_THAT(store.libraryPapers(), IsEmpty());
    EXPECT_THAT(store.projectPapers(), IsEmpty());
    ASSERT_EQ(store.citations(project).size(), 1U);
    EXPECT_EQ(store.citations(project).front().paper, one);

    store.cite(one, node.id, "again"); // back into library and project
    EXPECT_THAT(store.libraryPapers(project), ElementsAre(one));
    store.removeCitation("W1", node.id);
    EXPECT_THAT(store.citations(project), IsEmpty());
    EXPECT_THAT(store.libraryPapers(project), ElementsAre(one));
}

TEST_F(LibraryTest, CitingAgainReplacesTheReason)
{
    const Experiment node = insertExperiment(project, "node");
    const Experiment other = insertExperiment(project, "other");
    store.cite(one, node.id, "first");
    const Citation first = store.citations(project).front();
    store.cite(two, node.id, "second paper");
    Paper changed = one;
    changed.citations = 99;
    store.cite(changed, node.id, "second");
    store.cite(one, other.id, "other node");
    Citation expected = first;
    expected.reason = "second";
    EXPECT_EQ(store.citations(project).front(), expected);

    const auto citing = [](const Experiment& experiment, std::string reason) {
        return CitingExperiment{experiment.id, experiment.projectID, {}, experiment.title, std::move(reason)};
    };
    EXPECT_THAT(
        store.citingExperiments(), ElementsAre(
                                       Pair("W1", ElementsAre(citing(node, "second"), citing(other, "other node"))),
                                       Pair("W2", ElementsAre(citing(node, "second paper")))));
    store.setArchived(node.id, true);
    EXPECT_THAT(store.citingExperiments(), ElementsAre(Pair("W1", ElementsAre(citing(other, "other node")))));
    EXPECT_EQ(store.citations(project).size(), 3U);

    EXPECT_THROW(store.cite(makePaper("W9"), UUID::random(), "no such node"), DatabaseError);
    EXPECT_EQ(store.libraryPapers().size(), 2U);
}

} // namespace
} // namespace veltry::test
