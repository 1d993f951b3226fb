#pragma once

#include "Support/TemporaryFolder.h"

#include <cstddef>
#include <ostream>
#include <thread>

namespace veltry::test {

/// What this process holds of the system, to see that nothing stays behind.
struct ProcessResources {
    [[nodiscard]] static ProcessResources now()
    {
        // The thread sanitizer brings a thread of its own with the first one that is started.
        static const bool hadThread = (std::thread([] {}).join(), true);
        static_cast<void>(hadThread);
        return {.descriptors = entryCount("/proc/self/fd"), .threads = entryCount("/proc/self/task")};
    }

    bool operator==(const ProcessResources&) const = default;

    friend std::ostream& operator<<(std::ostream& out, const ProcessResources& resources)
    {
        return out << resources.descriptors << " descriptors, " << resources.threads << " threads";
    }

    std::ptrdiff_t descriptors;
    std::ptrdiff_t threads;
};

} // namespace veltry::test
