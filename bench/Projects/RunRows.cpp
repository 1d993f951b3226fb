#include "Experiments/RunWatch.h"
#include "History.h"
#include "Rows.h"

#include <concepts>

namespace veltry::bench {

namespace {

constexpr int rounds = 15;

/// The same work on a long history and on a short one.
template <std::invocable<const History&> Work>
Measured largeAgainstSmall(const Workplace& place, int times, Work work)
{
    const History large(place.folder, "large", History::large);
    const History small(place.folder, "small", History::small);
    const auto timed = [&](const History& history) {
        return [&] { return medianSecondsOf(times, [&] { work(history); }); };
    };
    return interleaved(rounds, timed(large), timed(small));
}

} // namespace

Measured furtherLook(const Workplace& place)
{
    const History large(place.folder, "large", History::large);
    const History small(place.folder, "small", History::small);
    RunWatch ofLarge(large.lab());
    RunWatch ofSmall(small.lab());
    const auto timed = [](RunWatch& watch) {
        return [&] { return medianSecondsOf(200, [&] { static_cast<void>(watch.finishedSince()); }); };
    };
    return interleaved(rounds, timed(ofLarge), timed(ofSmall));
}

Measured firstLook(const Workplace& place)
{
    return largeAgainstSmall(place, 1, [](const History& history) { const RunWatch watch(history.lab()); });
}

Measured runsOfAllProjects(const Workplace& place)
{
    return largeAgainstSmall(
        place, 1, [](const History& history) { static_cast<void>(history.store().unfinishedRuns()); });
}

Measured runByNumber(const Workplace& place)
{
    return largeAgainstSmall(place, 1, [](const History& history) {
        static_cast<void>(history.store().run(history.lastNumber(), history.project()));
    });
}

Measured nextNumber(const Workplace& place)
{
    return largeAgainstSmall(place, 1, [](const History& history) {
        const UUID id = UUID::random();
        static_cast<void>(history.store().insertRun(id, history.lastNode(), "0123", "/run"));
    });
}

} // namespace veltry::bench
