#include "Host/Refusal.h"
#include "Host/Views/RunTable.h"
#include "Support/TreeRecords.h"

#include <gmock/gmock.h>

namespace veltry {
namespace {

using enum Run::Status;

/// Numbers and texts under one key, a value that is called like a column, and runs without results.
class RunTables : public testing::Test {
protected:
    RunTables()
    {
        const Experiment base = test::node("base");
        const Experiment child = test::node("child", base.id);
        const Experiment leaf = test::node("leaf", child.id);
        tree_.emplace(
            std::vector{leaf, child, base}, std::vector{
                                                test::runOf(base, 1, succeeded, R"({"loss": 2, "status": "odd"})"),
                                                test::runOf(child, 2, failed),
                                                test::runOf(leaf, 3, succeeded, R"({"loss": 0.5})"),
                                                test::runOf(child, 4, succeeded, R"({"loss": 1})"),
                                                test::runOf(leaf, 5, cancelled, R"({"loss": "nan"})"),
                                                test::runOf(test::node("gone"), 6, succeeded, R"({"lost": 1})"),
                                            });
    }

    /// The rows' cells of a column.
    static std::string cells(const RunTable& table, std::string_view column)
    {
        std::string text;
        for (const RunTable::Row& row : table.rows())
            text += exactText(table.cell(row, table.column(column))) + " ";
        return text;
    }

    std::optional<ExperimentTree> tree_;
};

TEST_F(RunTables, MeasureValuesByTheRunThatSpeaksForANode)
{
    const RunTable table(*tree_);
    EXPECT_THAT(
        std::vector(table.names().begin() + 9, table.names().end()),
        testing::ElementsAre("loss", "loss:parent", "loss:baseline", "result.status"));
    EXPECT_EQ(cells(table, "node"), "base child leaf child leaf ");
    EXPECT_EQ(cells(table, "loss"), "2  0.5 1 nan ");
    EXPECT_EQ(cells(table, "loss:parent"), "  -0.5 -1  ");
    EXPECT_EQ(cells(table, "loss:baseline"), "  -1.5 -1  ");
    EXPECT_EQ(cells(table, "result.status"), "odd     ");
}

TEST_F(RunTables, KeepAndOrderRuns)
{
    const struct {
        std::string_view condition, column;
        bool descending;
        std::string_view runs;
    } cases[] = {
        {"run > 0", "loss", false, "3 4 1 5 2 "},
        {"run > 0", "loss", true, "5 1 4 3 2 "},
        {"run > 0", "node", true, "3 5 2 4 1 "},
        {"loss < 2", "run", false, "3 4 "},
        {"loss >= 1", "run", false, "1 4 "}, // and no text
        {"loss:baseline <= -1", "run", true, "4 3 "},
        {"loss != 1", "run", false, "1 3 5 "},
        {"status=failed", "run", false, "2 "},
        {"result.status ~ OD", "run", false, "1 "},
        {"title ~ LEA", "run", false, "3 5 "},
        {"began > 2001", "run", false, "1 2 3 4 5 "},
        {"ended > 2001", "run", false, ""},
        {"loss = nan", "run", false, "5 "},
        {"result.status != x, y", "run", false, "1 "},
        {"seconds < 1.5 min", "run", false, ""},
    };
    for (const auto& c : cases) {
        RunTable table(*tree_);
        table.keepWhere(c.condition);
        table.sort(table.column(c.column), c.descending);
        EXPECT_EQ(cells(table, "run"), c.runs) << c.condition << " by " << c.column;
    }
    const struct {
        std::string_view condition, error;
    } refusals[] = {
        {"loss is 3", "is no condition"},
        {"< 3", "is no condition"},
        {"", "is no condition"},
        {"los < 3", "Did you mean loss"},
        {"loss => 3", "Did you mean >=?"},
        {"loss == 3", "Did you mean =?"},
        {"loss <", "has no value"},
        {"loss < few", "is no number"},
        {"loss < 1e400", "is no number"},
        {"loss < 0,3", "0.3"},
        {"loss < 90%", "write 90, or 0.9"},
        {"loss < 5 min", "loss has no unit"},
        {"seconds < 5 parsec", "5 min, 2 h"},
        {"loss < 3 and run > 1", "two conditions"},
        {"node ~ leaf, loss<3", "two conditions"},
        {"0.5 < loss", "the column first"},
        {"began > yesterday", "is no date"},
    };
    for (const auto& c : refusals)
        try {
            RunTable(*tree_).keepWhere(c.condition);
            ADD_FAILURE() << c.condition;
        } catch (const UsageError& error) {
            EXPECT_THAT(error.message, testing::HasSubstr(c.error)) << c.condition;
        }
}

TEST_F(RunTables, GiveKeysThatLookLikeDifferencesColumnsOfTheirOwn)
{
    const Experiment base = test::node("base");
    const ExperimentTree tree({base}, {test::runOf(base, 1, succeeded, R"({"val:parent": 7, "val": 1})")});
    const RunTable table(tree);
    EXPECT_EQ(cells(table, "result.val:parent") + cells(table, "val") + cells(table, "val:parent"), "7 1  ");
}

} // namespace
} // namespace veltry
