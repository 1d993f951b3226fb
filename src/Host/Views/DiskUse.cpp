#include "Host/Views/DiskUse.h"

#include "Experiments/Changes/CommittedFiles.h"
#include "Platform/Files.h"
#include "Platform/FolderWalk.h"

#include <algorithm>
#include <array>
#include <set>
#include <string_view>

namespace veltry::DiskUse {

namespace {

namespace fs = std::filesystem;

/// Adds up what lies on the disk; a file with several names counts once.
class Weights {
public:
    /// 0 for what was there already.
    std::uint64_t of(const FolderWalk::Entry& entry)
    {
        const bool isNew = !entry.identity || seen_.insert(*entry.identity).second;
        return isNew ? entry.bytesOnDisk : 0;
    }

private:
    std::set<std::pair<std::uint64_t, std::uint64_t>> seen_;
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
    FolderWalk::visit(path, [&](const FolderWalk::Entry& entry) { bytes += weights.of(entry); });
    return bytes;
}

Project project(const Lab& lab)
{
    Project result;
    for (const Run& run : lab.store->runs(lab.project.id)) {
        const std::string source = run.source().string();
        Weights weights;
        FolderWalk::visit(run.directory, [&](const FolderWalk::Entry& entry) {
            (isBelow(entry.path, source) ? result.snapshots : result.records) += weights.of(entry);
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
    FolderWalk::visit(run.source(), [&](const FolderWalk::Entry& entry) {
        if (entry.isFolder)
            return;
        const fs::path below = entry.path.substr(std::min(prefix, entry.path.size()));
        (same.contains(below) ? result.committed : result.own).push_back({below, entry.bytesOnDisk});
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
