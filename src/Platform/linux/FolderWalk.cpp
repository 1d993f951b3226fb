#include "Platform/FolderWalk.h"

#include <fts.h>
#include <sys/stat.h>

#include <array>
#include <memory>
#include <string>

namespace veltry::FolderWalk {

namespace {

constexpr std::uint64_t block = 512; // what st_blocks counts, whatever the file system's own are

struct CloseWalk {
    void operator()(FTS* walk) const { ::fts_close(walk); }
};

Entry entryOf(const FTSENT& found)
{
    const struct stat& status = *found.fts_statp;
    Entry entry{
        .path = {found.fts_path, found.fts_pathlen},
        .isFolder = S_ISDIR(status.st_mode),
        .bytesOnDisk = static_cast<std::uint64_t>(status.st_blocks) * block};
    // Only a file with several names can be met twice.
    if (!entry.isFolder && status.st_nlink > 1)
        entry.identity.emplace(status.st_dev, status.st_ino);
    return entry;
}

} // namespace

void visit(const std::filesystem::path& folder, const std::function<void(const Entry& entry)>& visitor)
{
    std::string root = folder.string();
    const std::array<char*, 2> roots = {root.data(), nullptr};
    // Without the change of the working folder that fts makes by default, since all threads share that.
    const std::unique_ptr<FTS, CloseWalk> open(::fts_open(roots.data(), FTS_PHYSICAL | FTS_NOCHDIR, nullptr));
    if (!open)
        return;
    while (const FTSENT* found = ::fts_read(open.get())) {
        // A folder comes before its contents and once more after them, or as one that can't be read.
        const bool isSecondVisit = found->fts_info == FTS_DP || found->fts_info == FTS_DNR;
        if (!isSecondVisit && found->fts_info != FTS_NS && found->fts_info != FTS_ERR)
            visitor(entryOf(*found));
    }
}

} // namespace veltry::FolderWalk
