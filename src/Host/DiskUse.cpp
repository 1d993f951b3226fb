#include "Host/DiskUse.h"

#include "Experiments/CommittedFiles.h"
#include "Platform/Files.h"

#include <fmt/format.h>

#include <sys/stat.h>

#include <algorithm>
#include <array>
#include <set>

namespace veltry::DiskUse {

namespace {

namespace fs = std::filesystem;

constexpr std::uint64_t block = 512; // what st_blocks counts, whatever the file system's own are

/// Everything below a folder, which may change meanwhile. `visit` gets path and status.
template <typename Visit>
void walk(const fs::path& folder, Visit visit)
{
    std::error_code failure;
    if (fs::symlink_status(folder, failure).type() != fs::file_type::directory)
        return;
    fs::recursive_directory_iterator entry(folder, fs::directory_options::skip_permission_denied, failure);
    for (; !failure && entry != fs::recursive_directory_iterator(); entry.increment(failure)) {
        struct stat status{};
        if (::lstat(entry->path().c_str(), &status) == 0)
            visit(entry->path(), status);
    }
}

std::uint64_t bytesOf(const struct stat& status)
{
    return static_cast<std::uint64_t>(status.st_blocks) * block;
}

} // namespace

std::uint64_t weight(const fs::path& path)
{
    std::uint64_t bytes = 0;
    std::set<std::pair<dev_t, ino_t>> seen; // of what has several names
    struct stat own{};
    if (::lstat(path.c_str(), &own) == 0)
        bytes += bytesOf(own);
    walk(path, [&](const fs::path&, const struct stat& status) {
        if (S_ISDIR(status.st_mode) || status.st_nlink == 1 || seen.emplace(status.st_dev, status.st_ino).second)
            bytes += bytesOf(status);
    });
    return bytes;
}

std::string size(std::uint64_t bytes)
{
    constexpr std::array units = {"kB", "MB", "GB", "TB"};
    if (bytes < 1000)
        return fmt::format("{} B", bytes);
    double number = static_cast<double>(bytes) / 1000;
    std::size_t unit = 0;
    for (; number >= 999.95 && unit + 1 < units.size(); ++unit)
        number /= 1000;
    return fmt::format("{:.1f} {}", number, units.at(unit));
}

Project project(const Lab& lab)
{
    Project result;
    for (const Run& run : lab.store->runs(lab.project.id)) {
        const std::uint64_t source = weight(run.source());
        result.snapshots += source;
        result.records += weight(run.directory) - std::min(source, weight(run.directory));
    }
    result.worktrees = weight(lab.project.folders.front() / Lab::worktrees);
    return result;
}

Snapshot snapshot(const Lab& lab, const Run& run)
{
    Snapshot result;
    if (!run.isFinished())
        return result;
    std::set<fs::path> same;
    for (fs::path& path : filesAsCommitted(Git(lab.project.folders.front()), run.commit, run.source()))
        same.insert(std::move(path));
    walk(run.source(), [&](const fs::path& path, const struct stat& status) {
        if (S_ISDIR(status.st_mode))
            return;
        const fs::path below = path.lexically_relative(run.source());
        (same.contains(below) ? result.committed : result.own).push_back({below, bytesOf(status)});
    });
    std::ranges::sort(result.own, [](const Snapshot::File& left, const Snapshot::File& right) {
        return left.bytes != right.bytes ? left.bytes > right.bytes : left.path < right.path;
    });
    return result;
}

std::uint64_t release(const Lab& lab, const Run& run)
{
    std::uint64_t bytes = 0;
    std::set<fs::path> folders;
    for (const Snapshot::File& file : snapshot(lab, run).committed) {
        if (!Files::remove(run.source() / file.path))
            continue;
        bytes += file.bytes;
        for (fs::path folder = file.path.parent_path(); !folder.empty(); folder = folder.parent_path())
            folders.insert(folder);
    }
    for (auto folder = folders.rbegin(); folder != folders.rend(); ++folder) { // the inner ones first
        std::error_code notEmpty;
        if (fs::is_directory(fs::symlink_status(run.source() / *folder, notEmpty)))
            fs::remove(run.source() / *folder, notEmpty);
    }
    return bytes;
}

} // namespace veltry::DiskUse
