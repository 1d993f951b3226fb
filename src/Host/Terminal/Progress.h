#pragma once

#include "Host/Terminal/Terminal.h"

#include <condition_variable>
#include <mutex>
#include <string>
#include <thread>

namespace veltry {

/// Shows what is being done, and for how long, on a line of its own that appears once it has taken a second and goes
/// when this is destroyed. Nothing is shown where the notes don't go to a terminal. It draws on a thread of its own, so
/// whatever is written meanwhile lands in the line.
class Progress {
public:
    Progress(const Terminal& notes, std::string words);
    Progress(const Progress&) = delete;
    Progress& operator=(const Progress&) = delete;
    ~Progress();

private:
    void draw(const std::stop_token& stop);

    Terminal notes_;
    std::string words_;
    std::mutex mutex_;
    std::condition_variable_any ended_;
    std::jthread thread_;
};

} // namespace veltry
