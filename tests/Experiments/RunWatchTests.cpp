#include "Experiments/RunWatch.h"
#include "Support/TestLab.h"

#include <gmock/gmock.h>

namespace veltry {
namespace {

using test::TestLab;
using testing::ElementsAre;
using testing::IsEmpty;

std::vector<std::int64_t> numbers(const std::vector<Run>& runs)
{
    std::vector<std::int64_t> result;
    for (const Run& run : runs)
        result.push_back(run.number);
    return result;
}

TEST(RunWatch, TellsEachRunOfItsFirstLookOnceWhenItHasEnded)
{
    const TestLab test;
    const Experiment node = test.baseline("true");
    test.insertFinished(node); // run 1 had ended before
    std::vector<UUID> ids;
    for (int index = 0; index < 4; ++index) {
        ids.push_back(UUID::random());
        test.store->insertRun(ids.back(), node, "commit", test.runs() / "none");
    }
    RunWatch watch(test.lab);
    EXPECT_EQ(watch.waiting(), 4u);
    EXPECT_THAT(watch.finishedSince(), IsEmpty());

    const auto later = test.insertFinished(node); // came and went after the first look
    test.store->finishRun(ids[2], Run::Status::failed, 1, std::nullopt);
    test.store->finishRun(ids[0], Run::Status::succeeded, 0, "{}");
    EXPECT_THAT(numbers(watch.finishedSince()), ElementsAre(2, 4));
    EXPECT_EQ(watch.waiting(), 2u);
    EXPECT_THAT(watch.finishedSince(), IsEmpty());

    test.backdate(ids[1], 11); // its supervisor never came
    EXPECT_THAT(numbers(watch.finishedSince()), ElementsAre(3));
    EXPECT_EQ(watch.waiting(), 1u);

    const UUID second = UUID::random();
    test.store->insertRun(second, node, "commit", test.runs() / "none");
    EXPECT_THAT(watch.finishedSince(), IsEmpty());
    test.backdate(second, 11);
    EXPECT_THAT(watch.finishedSince(), IsEmpty()) << "it wasn't there at the first look";
    EXPECT_EQ(test.store->run(second)->status, Run::Status::failed) << "but is closed as well";
}

} // namespace
} // namespace veltry
