#include "Host/Views/DiskUse.h"

#include "Experiments/Changes/CommittedFiles.h"
#include "Platform/Files.h"

#include <fts.h>
#include <sys/stat.h>

#include <algorithm>
#include <array>
#include <memory>
#include <set>
#include <string_view>

namespace veltry::DiskUse {

namespace {

namespace fs = std::filesystem;

constexpr std::uint64_t block = 512; // what st_blocks counts, whatever the file system's own are

using Status = struct stat;

struct CloseWalk {
    void operator()(FTS* walk) const { ::fts_close(walk); }
};

/// The folder, if it is there, and everything below it, which may change meanwhile. Links are not followed, and what
/// may not be read is left out. `visit` gets path and status.
template <typename Visit>
void walk(const fs::path& folder, Visit visit)
{
    std::string root = folder.string();
    const std::array<char*, 2> roots = {root.data(), nullptr};
    const std::unique_ptr<FTS, CloseWalk> open(::fts_open(roots.data(), FTS_PHYSICAL | FTS_NOCHDIR, nullptr));
    if (!open)
        return;
    while (const FTSENT* entry = ::fts_read(open.get())) {
        const bool isAfterContents = entry->fts_info == FTS_DP || entry->fts_info == FTS_DNR;
        if (!isAfterContents && entry->fts_info != FTS_NS && entry->fts_info != FTS_ERR)
            visit(std::string_view(entry->fts_path, entry->fts_pathlen), *entry->fts_statp);
    }
}

/// Adds up what lies on the disk; a file with several names counts once.
class Weights {
public:
    /// 0 for what was there already.
    std::uint64_t of(const Status& status)
    {
        const bool isNew =
            S_ISDIR(status.st_mode) || status.st_nlink == 1 || seen_.emplace(status.st_dev, status.st_ino).second;
        return isNew ? bytesOf(status) : 0;
    }

    static std::uint64_t bytesOf(const Status& status) { return static_cast<std::uint64_t>(status.st_blocks) * block; }

private:
    std::set<std::pair<dev_t, ino_t>> seen_;
};

bool isBelow(std::string_view path, std::string_view folder)
{
    return path.starts_with(folder) && (path.size() == folder.size() || path[folder.size()] == '/');
}

} // namespace

std::uint64_t weight(const fs::path& path)
{
    std::uint64_t bytes = 0;
    Weights weights;
    walk(path, [&](std::string_view, const Status& status) { bytes += weights.of(status); });
    return bytes;
}

Project project(const Lab& lab)
{
    Project result;
    for (const Run& run : lab.store->runs(lab.project.id)) {
        const std::string source = run.source().string();
        Weights weights;
        walk(run.directory, [&](std::string_view path, const Status& status) {
            (isBelow(path, source) ? result.snapshots : result.records) += weights.of(status);
        });
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
    const std::size_t prefix = run.source().string().size() + 1;
    walk(run.source(), [&](std::string_view path, const Status& status) {
        if (S_ISDIR(status.st_mode))
            return;
        const fs::path below = path.substr(std::min(prefix, path.size()));
        (same.contains(below) ? result.committed : result.own).push_back({below, Weights::bytesOf(status)});
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
    // The inner ones first.
    for (auto folder = folders.rbegin(); folder != folders.rend(); ++folder) {
        std::error_code notEmpty;
        if (fs::is_directory(fs::symlink_status(run.source() / *folder, notEmpty)))
            fs::remove(run.source() / *folder, notEmpty);
    }
    return bytes;
}

} // namespace veltry::DiskUse
