#include "Host/Views/LiveRun.h"

#include "Host/Context.h"

namespace veltry {

namespace {

constexpr std::chrono::seconds betweenTests(2); // of whether its supervisor lives

} // namespace

LiveRun::LiveRun(Context& context, Run run)
    : context_(&context), run_(std::move(run)), version_(context.store()->dataVersion()),
      nextTest_(std::chrono::steady_clock::now())
{
    if (std::optional<Run> fresh = context.store()->run(run_.id)) // it may have ended before the version was read
        run_ = std::move(*fresh);
}

const Run& LiveRun::look()
{
    if (run_.isFinished())
        return run_;
    if (const std::int64_t version = context_->store()->dataVersion(); version != version_) {
        version_ = version;
        if (std::optional<Run> fresh = context_->store()->run(run_.id))
            run_ = std::move(*fresh);
        else
            throw Refusal("The run was removed from the store.");
    }
    if (const auto now = std::chrono::steady_clock::now(); now >= nextTest_) {
        nextTest_ = now + betweenTests;
        std::vector<Run> runs{run_};
        context_->lab().reconcile(runs);
        run_ = std::move(runs.front());
    }
    return run_;
}

} // namespace veltry
