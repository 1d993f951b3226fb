#include "Host/Views/StoreWatch.h"

#include <algorithm>
#include <thread>

namespace veltry {

namespace {

constexpr std::chrono::milliseconds pause{200};
constexpr std::chrono::seconds livenessPause{1};

} // namespace

StoreWatch::StoreWatch(const Lab& lab, const Terminal& terminal)
    : lab_(&lab), terminal_(&terminal), dataVersion_(lab.store->dataVersion()), size_(terminal.size()),
      inFlight_(lab.store->runsInFlight(lab.project.id).runs),
      nextLiveness_(std::chrono::steady_clock::now() + livenessPause)
{
}

StoreWatch::Event StoreWatch::wait(std::chrono::milliseconds longest)
{
    const auto deadline = std::chrono::steady_clock::now() + longest;
    while (true) {
        if (const std::int64_t version = lab_->store->dataVersion(); version != dataVersion_) {
            // Before the rows are read, so that what is committed meanwhile counts again.
            dataVersion_ = version;
            inFlight_ = lab_->store->runsInFlight(lab_->project.id).runs;
            return Event::changed;
        }
        if (const std::optional<Terminal::Size> size = terminal_->size(); size != size_) {
            size_ = size;
            return Event::resized;
        }
        const auto now = std::chrono::steady_clock::now();
        if (now >= nextLiveness_) {
            nextLiveness_ = now + livenessPause;
            if (closeTheDead())
                return Event::changed;
        }
        if (now >= deadline)
            return Event::timedOut;
        // No commit wakes anybody.
        std::this_thread::sleep_for(std::min<std::chrono::steady_clock::duration>(pause, deadline - now));
    }
}

bool StoreWatch::closeTheDead()
{
    lab_->reconcile(inFlight_);
    // What we have just committed ourselves doesn't show in the store's version.
    return std::erase_if(inFlight_, [](const Run& run) { return run.isFinished(); }) > 0;
}

} // namespace veltry
