#include "Platform/FileSystemFacts.h"

#include "Base/Text.h"
#include "Platform/Files.h"

#include <fmt/format.h>

#include <sys/stat.h>
#include <sys/statvfs.h>
#include <sys/sysmacros.h>

#include <algorithm>
#include <array>

namespace veltry::FileSystemFacts {

namespace {

constexpr std::array<std::string_view, 14> networkTypes = {
    "nfs", "nfs4", "cifs",   "smb3",   "smbfs",     "afs",   "ceph",
    "9p",  "gfs2", "lustre", "beegfs", "glusterfs", "ocfs2", "virtiofs",
};

bool holds(std::string_view mountPoint, std::string_view path)
{
    return path.starts_with(mountPoint) &&
           (mountPoint == "/" || path.size() == mountPoint.size() || path[mountPoint.size()] == '/');
}

/// mountinfo(5): "36 35 98:0 /root /mount/point options [more]... - type source options". Of a file system with several
/// volumes files have other devices than its mounts, so the innermost mount point around `path` counts then.
std::string typeOf(const std::filesystem::path& path, dev_t device)
{
    const std::string wanted = fmt::format("{}:{}", major(device), minor(device));
    std::string around;
    std::size_t longest = 0;
    const std::string table = Files::readIfPossible("/proc/self/mountinfo").value_or("");
    for (const std::string_view line : text::split(table, '\n')) {
        const std::vector<std::string_view> fields = text::split(line, ' ');
        const auto hyphen = std::ranges::find(fields, "-");
        if (fields.size() < 5 || fields.end() - hyphen < 2)
            continue;
        if (fields[2] == wanted)
            return std::string(hyphen[1]);
        if (fields[4].size() >= longest && holds(fields[4], path.native())) {
            longest = fields[4].size();
            around = hyphen[1];
        }
    }
    return around;
}

} // namespace

bool isNetworkType(std::string_view type)
{
    // FUSE puts the name of its program after this prefix, and some of those reach over the network.
    const std::string_view plain = type.starts_with("fuse.") ? type.substr(5) : type;
    return std::ranges::find(networkTypes, plain) != networkTypes.end() || plain == "sshfs" || plain == "rclone" ||
           plain == "s3fs";
}

std::optional<FileSystem> of(const std::filesystem::path& path)
{
    // What isn't made yet will lie in the file system of the nearest folder above it.
    std::filesystem::path there = path;
    while (!Files::exists(there) && there.has_relative_path())
        there = there.parent_path();
    std::error_code unknown;
    struct stat status{};
    struct statvfs space{};
    if (::stat(there.c_str(), &status) != 0 || ::statvfs(there.c_str(), &space) != 0)
        return std::nullopt;
    FileSystem system{.type = typeOf(std::filesystem::weakly_canonical(there, unknown), status.st_dev)};
    system.isNetwork = isNetworkType(system.type);
    // What this user may take: the part reserved for root isn't in it.
    system.freeBytes = std::uint64_t{space.f_bavail} * space.f_frsize;
    return system;
}

} // namespace veltry::FileSystemFacts
