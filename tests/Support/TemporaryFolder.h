#pragma once

#include <sys/types.h>

#include <cstddef>
#include <filesystem>
#include <string_view>

namespace veltry::test {

/// A new, empty folder that goes away with everything in it.
class TemporaryFolder {
public:
    TemporaryFolder();
    TemporaryFolder(const TemporaryFolder&) = delete;
    TemporaryFolder& operator=(const TemporaryFolder&) = delete;
    ~TemporaryFolder();

    [[nodiscard]] const std::filesystem::path& path() const { return path_; }

    [[nodiscard]] std::filesystem::path operator/(std::string_view name) const { return path_ / name; }

private:
    std::filesystem::path path_;
};

/// How many names stand in a folder, "." and ".." left out.
[[nodiscard]] std::ptrdiff_t entryCount(const std::filesystem::path& folder);
/// A file's permissions, as chmod(2) takes them.
[[nodiscard]] mode_t modeOf(const std::filesystem::path& file);

} // namespace veltry::test
