#include "StoreSupport.h"
#include "Support/TemporaryFolder.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sqlite3.h>

namespace veltry::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class ExperimentTest : public testing::Test {
protected:
    Experiment insert(Experiment experiment)
    {
        store.insertExperiment(experiment);
        return experiment;
    }

    TemporaryFolder folder;
    ProjectStore store{folder / "store"};
    UUID project = store.createProject("p", {"/p"}).id;
};

TEST_F(ExperimentTest, ReadsBackWhatItWrote)
{
    Experiment full = makeExperiment(project, "first");
    full.notes = "# \"notes\" with 'quotes'; \xFF and a \0 in it";
    full.archived = true;
    full.conversationID = UUID::random(); // need not exist
    insert(full);
    Experiment child = makeExperiment(project, "second");
    child.parentID = full.id;
    child.createdAt = full.createdAt; // equal times keep the order of the rows
    insert(child);
    EXPECT_THAT(store.experiments(project), ElementsAre(full, child));
    EXPECT_EQ(store.experiment(child.id), child);
    EXPECT_EQ(store.experiment(UUID::random()), std::nullopt);

    store.setNotes(child.id, "new");
    store.setNotes(child.id, "new");
    store.setArchived(child.id, true);
    child.notes = "new";
    child.archived = true;
    EXPECT_EQ(store.experiment(child.id), child);
    EXPECT_EQ(experimentFromJSON(toJSON(child)), child);

    try {
        store.setNotes(UUID::parse("5e0b6d5c-1c4e-4e6e-9e4e-2b8b8b8b8b8b").value(), "of nothing");
        FAIL() << "nothing was thrown";
    } catch (const ExperimentStoreError& failure) {
        EXPECT_EQ(failure.id, "5E0B6D5C-1C4E-4E6E-9E4E-2B8B8B8B8B8B");
    }
    EXPECT_THROW(store.setArchived(UUID::random(), true), ExperimentStoreError);
}

TEST_F(ExperimentTest, ConstraintsRefuse)
{
    const Experiment first = insert(makeExperiment(project, "slug"));
    Experiment orphan = makeExperiment(project, "orphan");
    orphan.parentID = UUID::random();

    const struct {
        std::string_view name;
        Experiment experiment;
        int code;
    } cases[] = {
        {"slug", makeExperiment(project, "slug"), SQLITE_CONSTRAINT_UNIQUE},
        {"project", makeExperiment(UUID::random(), "other"), SQLITE_CONSTRAINT_FOREIGNKEY},
        {"parent", orphan, SQLITE_CONSTRAINT_FOREIGNKEY},
    };

    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        EXPECT_EQ(failureOf([&] { insert(c.experiment); }).extendedCode, c.code);
    }
    EXPECT_NO_THROW(insert(makeExperiment(store.createProject("q", {"/q"}).id, "slug")));
    EXPECT_THAT(store.experiments(project), ElementsAre(first));
}

TEST_F(ExperimentTest, AChildOutlivesItsParentAsARoot)
{
    const Experiment parent = insert(makeExperiment(project, "parent"));
    Experiment child = makeExperiment(project, "child");
    child.parentID = parent.id;
    insert(child);
    store.insertRun(UUID::random(), parent, "c", "/r");
    execute(store.path(), "DELETE FROM experiment WHERE id = ?", parent.id);
    child.parentID = {};
    EXPECT_THAT(store.experiments(project), ElementsAre(child));
    EXPECT_TRUE(store.experiments(project).front().isRoot());
    EXPECT_THAT(store.runs(project), IsEmpty());
}

TEST_F(ExperimentTest, DamagedRowsAreLeftOut)
{
    const Experiment good = insert(makeExperiment(project, "good"));
    const Experiment stray = insert(makeExperiment(project, "stray"));
    insert(makeExperiment(project, "bad"));
    execute(store.path(), R"(PRAGMA foreign_keys = OFF;
UPDATE experiment SET id = 'not an id' WHERE slug = 'bad';
UPDATE experiment SET parent_id = 'nor this', conversation_id = 'nor that' WHERE slug = 'stray')");
    EXPECT_THAT(store.experiments(project), ElementsAre(good, stray));
    EXPECT_THAT(rows(store.path(), "SELECT slug FROM experiment WHERE id = 'not an id'"), ElementsAre("bad"));
}

} // namespace
} // namespace veltry::test
