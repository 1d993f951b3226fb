#pragma once

#include "VeltryTools/Tool.h"

#include <chrono>

namespace veltry {

/// The notices of one call that waits: one each `interval`, the first after the first of them, and none where the
/// client wants none. Belongs to the coroutine that waits.
class ProgressNotices {
public:
    ProgressNotices(Progress progress, std::chrono::milliseconds interval)
        : progress_(std::move(progress)), interval_(interval), next_(Clock::now() + interval)
    {
    }

    /// Between two looks of the waiting call: sends the message if it is time.
    void sendIfDue(const std::string& message)
    {
        if (!progress_ || Clock::now() < next_)
            return;
        progress_(message);
        next_ += interval_;
    }

private:
    using Clock = std::chrono::steady_clock;

    Progress progress_;
    std::chrono::milliseconds interval_;
    Clock::time_point next_;
};

} // namespace veltry
