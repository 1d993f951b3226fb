#include "StoreSupport.h"

#include <sqlite3.h>

namespace veltry::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class ExperimentTest : public StoreTest {
protected:
    UUID project = store.createProject("p", {"/p"}).id;
};

TEST_F(ExperimentTest, ReadsBackWhatItWrote)
{
    Experiment full = makeExperiment(project, "first");
    full.notes = "# \"notes\" with 'quotes'; \xFF and a \0 in it";
    full.archived = true;
    full.conversationID = UUID::random(); // need not exist
    store.insertExperiment(full);
    Experiment child = makeExperiment(project, "second");
    child.parentID = full.id;
    child.createdAt = full.createdAt; // equal times keep the order of the rows
    store.insertExperiment(child);
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

    EXPECT_THROW(store.setNotes(UUID::random(), "of nothing"), ExperimentStoreError);
    EXPECT_THROW(store.setArchived(UUID::random(), true), ExperimentStoreError);
}

TEST_F(ExperimentTest, ConstraintsRefuse)
{
    const Experiment first = insertExperiment(project, "slug");
    Experiment orphan = makeExperiment(project, "orphan");
    orphan.parentID = UUID::random();
    EXPECT_EQ(failureOf([&] { insertExperiment(project, "slug"); }).extendedCode, SQLITE_CONSTRAINT_UNIQUE);
    EXPECT_EQ(failureOf([&] { store.insertExperiment(orphan); }).extendedCode, SQLITE_CONSTRAINT_FOREIGNKEY);
    EXPECT_NO_THROW(insertExperiment(store.createProject("q", {"/q"}).id, "slug"));
    EXPECT_THAT(store.experiments(project), ElementsAre(first));
}

TEST_F(ExperimentTest, AChildOutlivesItsParentAsARoot)
{
    const Experiment parent = insertExperiment(project, "parent");
    Experiment child = makeExperiment(project, "child");
    child.parentID = parent.id;
    store.insertExperiment(child);
    store.insertRun(UUID::random(), parent, "c", "/r");
    execute("DELETE FROM experiment WHERE id = ?", parent.id);
    child.parentID = {};
    EXPECT_THAT(store.experiments(project), ElementsAre(child));
    EXPECT_TRUE(store.experiments(project).front().isRoot());
    EXPECT_THAT(store.runs(project), IsEmpty());
}

TEST_F(ExperimentTest, DamagedRowsAreLeftOut)
{
    const Experiment good = insertExperiment(project, "good");
    const Experiment stray = insertExperiment(project, "stray");
    insertExperiment(project, "bad");
    execute(R"(PRAGMA foreign_keys = OFF;
UPDATE experiment SET id = 'not an id' WHERE slug = 'bad';
UPDATE experiment SET parent_id = 'nor this', conversation_id = 'nor that' WHERE slug = 'stray')");
    EXPECT_THAT(store.experiments(project), ElementsAre(good, stray));
    EXPECT_THAT(rows("SELECT slug FROM experiment WHERE id = 'not an id'"), ElementsAre("bad"));
}

} // namespace
} // namespace veltry::test
