#include "Experiments/Changes/CommittedFiles.h"

#include "Base/Text.h"

#include <algorithm>
#include <map>

namespace veltry {

namespace {

namespace fs = std::filesystem;

constexpr std::size_t bytesAtOnce = 65'536;

struct Entry {
    std::string mode;
    std::string id;
    std::string size;
    fs::path path;
};

/// "100644 blob <id>    <size>\t<path>", each ended by a NUL.
std::vector<Entry> entriesOf(std::string_view listing)
{
    std::vector<Entry> entries;
    for (const std::string_view record : text::split(listing, '\0')) {
        const std::size_t tab = record.find('\t');
        std::vector<std::string_view> words = text::split(record.substr(0, tab), ' ');
        std::erase(words, std::string_view());
        if (tab != std::string_view::npos && words.size() == 4)
            entries.push_back(
                {std::string(words[0]), std::string(words[2]), std::string(words[3]), record.substr(tab + 1)});
    }
    return entries;
}

/// Whether all folders on the way to a file are folders and no links, which might lead anywhere.
class Ways {
public:
    explicit Ways(fs::path root) : root_(std::move(root)) {}

    bool isOpen(const fs::path& folder)
    {
        if (folder.empty())
            return true;
        const auto known = known_.find(folder);
        if (known != known_.end())
            return known->second;
        std::error_code unknown;
        const bool isFolder = isOpen(folder.parent_path()) &&
                              fs::symlink_status(root_ / folder, unknown).type() == fs::file_type::directory;
        return known_[folder] = isFolder;
    }

private:
    fs::path root_;
    std::map<fs::path, bool> known_;
};

bool hasMode(const fs::file_status& status, std::string_view mode)
{
    const bool executable = (status.permissions() & fs::perms::owner_exec) != fs::perms::none;
    return status.type() == fs::file_type::regular && (mode == "100644" || mode == "100755") &&
           executable == (mode == "100755");
}

/// The ids that git gives to the bytes of these files, some at a time: a command line has its limit.
std::vector<std::string> objectIDs(const Git& git, const std::vector<fs::path>& files)
{
    std::vector<std::string> ids;
    for (std::size_t begin = 0; begin < files.size();) {
        Git::Arguments arguments = {"hash-object", "--no-filters", "--"};
        for (std::size_t bytes = 0; begin < files.size() && bytes < bytesAtOnce; ++begin) {
            arguments.push_back(files[begin].string());
            bytes += arguments.back().size();
        }
        const std::string lines = git.run(arguments);
        for (const std::string_view line : text::split(lines, '\n'))
            ids.emplace_back(line);
    }
    return ids;
}

/// A blob's text comes trimmed and repaired, so its size has to be right as well.
bool leadsWhere(const Git& git, const Entry& entry, const std::string& target)
{
    return entry.size == std::to_string(target.size()) && git.run({"cat-file", "blob", entry.id}) == target;
}

} // namespace

std::vector<fs::path> filesAsCommitted(const Git& git, const std::string& commit, const fs::path& folder)
{
    Ways ways(folder);
    std::vector<fs::path> same;
    std::vector<Entry> plain;
    std::vector<fs::path> files;
    for (Entry& entry : entriesOf(git.run({"ls-tree", "-r", "-l", "-z", "--full-tree", commit}))) {
        std::error_code unknown;
        const fs::path file = folder / entry.path;
        if (!ways.isOpen(entry.path.parent_path()))
            continue;
        const fs::file_status status = fs::symlink_status(file, unknown);
        if (hasMode(status, entry.mode)) {
            files.push_back(file);
            plain.push_back(std::move(entry));
        } else if (entry.mode == "120000" && status.type() == fs::file_type::symlink) {
            const fs::path target = fs::read_symlink(file, unknown);
            if (!unknown && leadsWhere(git, entry, target.string()))
                same.push_back(entry.path);
        }
    }
    const std::vector<std::string> ids = objectIDs(git, files);
    for (std::size_t index = 0; index < std::min(ids.size(), plain.size()); ++index)
        if (ids[index] == plain[index].id)
            same.push_back(plain[index].path);
    return same;
}

} // namespace veltry
