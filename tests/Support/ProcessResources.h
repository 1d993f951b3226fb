#pragma once

#include <cstddef>
#include <filesystem>
#include <iterator>
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
        const auto count = [](const char* folder) {
            const std::filesystem::directory_iterator entries(folder);
            return static_cast<std::size_t>(std::distance(begin(entries), end(entries)));
        };
        return {.descriptors = count("/proc/self/fd"), .threads = count("/proc/self/task")};
    }

    bool operator==(const ProcessResources&) const = default;

    friend std::ostream& operator<<(std::ostream& out, const ProcessResources& resources)
    {
        return out << resources.descriptors << " descriptors, " << resources.threads << " threads";
    }

    std::size_t descriptors;
    std::size_t threads;
};

} // namespace veltry::test
