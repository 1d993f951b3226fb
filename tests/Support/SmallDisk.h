#pragma once

#include "Platform/Files.h"

#include <fcntl.h>
#include <sys/mount.h>
#include <unistd.h>

#include <array>
#include <filesystem>
#include <string_view>
#include <utility>

namespace veltry::test {

/// A tmpfs of one megabyte on a folder, while it lives. Mounting one takes root: look at `mounted` and skip the test.
class SmallDisk {
public:
    explicit SmallDisk(std::filesystem::path folder) : folder_(std::move(folder))
    {
        Files::createFolders(folder_);
        mounted = ::mount("tmpfs", folder_.c_str(), "tmpfs", 0, "size=1m") == 0;
    }

    SmallDisk(const SmallDisk&) = delete;
    SmallDisk& operator=(const SmallDisk&) = delete;

    ~SmallDisk()
    {
        if (mounted)
            ::umount2(folder_.c_str(), MNT_DETACH);
    }

    [[nodiscard]] std::filesystem::path operator/(std::string_view name) const { return folder_ / name; }

    /// Takes all the space that is left.
    void fill() const
    {
        const FileDescriptor file = Files::open(folder_ / "fill", Files::forAppending);
        const std::array<char, 4096> block{};
        while (::write(file.get(), block.data(), block.size()) > 0) {
        }
    }

    /// Gives it back.
    void clear() const { Files::remove(folder_ / "fill"); }

    bool mounted = false;

private:
    std::filesystem::path folder_;
};

} // namespace veltry::test
