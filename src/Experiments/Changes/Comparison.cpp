#include "Experiments/Changes/Comparison.h"

#include "Base/Text.h"
#include "Experiments/Changes/DiffReader.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <future>
#include <iterator>
#include <map>
#include <set>
#include <tuple>

namespace veltry {

namespace {

/// What the person's configuration could say otherwise, back at git's own defaults.
constexpr std::array defaultSettings = {
    "core.quotePath=false",  "core.attributesFile=/dev/null", "diff.ignoreSubmodules=none",
    "diff.renameLimit=1000", "diff.suppressBlankEmpty=false",
};
constexpr std::array defaultOptions = {
    "--no-color",         "--no-ext-diff",          "--no-textconv",     "--no-relative",
    "--src-prefix=a/",    "--dst-prefix=b/",        "--submodule=short", "--diff-algorithm=default",
    "--indent-heuristic", "--inter-hunk-context=0", "-O/dev/null",
};

/// Bytes of paths in one command; the system allows some megabytes, with the environment in them.
constexpr std::size_t longestPaths = 512U << 10;

/// git's letters, and what they are here; any other is `modified`.
constexpr std::pair<char, Changes::Kind> kinds[] = {
    {'A', Changes::Kind::added},
    {'D', Changes::Kind::deleted},
    {'R', Changes::Kind::renamed},
    {'C', Changes::Kind::copied},
};

Changes::Kind kindOf(char status)
{
    const auto* found = std::ranges::find(kinds, status, &std::pair<char, Changes::Kind>::first);
    return found == std::end(kinds) ? Changes::Kind::modified : found->second;
}

/// The pieces between NUL characters, one by one.
class Pieces {
public:
    explicit Pieces(std::string_view bytes) : pieces_(text::split(bytes, '\0')) {}

    std::optional<std::string_view> next()
    {
        return next_ < pieces_.size() ? std::optional(pieces_[next_++]) : std::nullopt;
    }

private:
    std::vector<std::string_view> pieces_;
    std::size_t next_ = 0;
};

/// The counts of the next file in the output of `--numstat -z`: "12\t3\tpath", or "12\t3\t" and two pieces more for the
/// paths of a rename. A binary file has "-" for both.
std::pair<std::optional<std::int64_t>, std::optional<std::int64_t>> takeCounts(Pieces& pieces)
{
    const std::optional<std::string_view> piece = pieces.next();
    if (!piece)
        return {};
    const std::size_t first = piece->find('\t');
    const std::size_t second = first == std::string_view::npos ? first : piece->find('\t', first + 1);
    if (second != std::string_view::npos && second + 1 == piece->size()) {
        pieces.next();
        pieces.next();
    }
    if (first == std::string_view::npos)
        return {text::integer(*piece), std::nullopt};
    return {text::integer(piece->substr(0, first)), text::integer(piece->substr(first + 1, second - first - 1))};
}

/// As git writes a path inside quotes, all bytes above ASCII as they are.
std::string escaped(std::string_view path)
{
    constexpr std::string_view named = "\a\b\t\n\v\f\r\"\\";
    constexpr std::string_view letters = "abtnvfr\"\\";
    std::string result;
    for (const char c : path) {
        const auto code = static_cast<unsigned char>(c);
        if (const std::size_t place = named.find(c); place != std::string_view::npos)
            result.append({'\\', letters[place]});
        else if (code < 0x20 || code == 0x7F)
            fmt::format_to(std::back_inserter(result), "\\{:03o}", code);
        else
            result += c;
    }
    return result;
}

std::string quotedIfNeeded(const std::string& path)
{
    std::string inside = escaped(path);
    return inside == path ? std::move(inside) : fmt::format("\"{}\"", inside);
}

/// What the file's section says of its paths: the line that it begins with and, if it was renamed, its new path, since
/// " b/" may stand in a path.
std::pair<std::string, std::string> sectionName(const std::optional<std::string>& oldPath, const std::string& path)
{
    return {
        fmt::format("diff --git {} {}", quotedIfNeeded("a/" + oldPath.value_or(path)), quotedIfNeeded("b/" + path)),
        oldPath ? quotedIfNeeded(path) : ""};
}

/// git's text to be read. At the very end of a comparison's text white space is left out, as Git::run() has it; at the
/// end of others it belongs to a line of the file.
std::string_view toBeRead(std::string_view diff, const std::string* veryLast)
{
    if (veryLast) {
        const std::size_t lastSection = diff.rfind("\ndiff --git ") + 1; // 0 where there is one alone
        if (diff.substr(lastSection).starts_with(*veryLast + '\n'))
            return text::trimmed(diff);
    }
    return diff.substr(0, diff.ends_with('\n') ? diff.size() - 1 : diff.size());
}

} // namespace

std::vector<Changes::File> Comparison::files() const
{
    Entries entries = list();
    choose(entries);
    readText(entries);
    std::vector<Changes::File> files;
    files.reserve(entries.size());
    for (Entry& entry : entries)
        files.push_back(file(entry));
    return files;
}

Changes::File Comparison::file(Entry& entry)
{
    using Shown = Changes::File::Shown;
    return {
        .path = text::repaired(entry.path),
        .oldPath = entry.oldPath ? std::optional(text::repaired(*entry.oldPath)) : std::nullopt,
        .kind = kindOf(entry.status),
        .added = entry.added,
        .removed = entry.removed,
        .shown = !entry.added   ? Shown::binary
                 : entry.chosen ? Shown::lines
                                : Shown::tooLarge,
        .hunks = std::move(entry.hunks).value_or(std::vector<Changes::Hunk>())};
}

/// Both lists come from two looks at the same two states, so they have the same files in the same order.
Comparison::Entries Comparison::list() const
{
    // Beside each other: either takes as long as the other, and neither waits for anything but the disk.
    auto counts = std::async(
        std::launch::async, [this] { return git_.output(command({"-M", "--numstat", "-z"}), {}, sides_.environment); });
    const std::string names = git_.output(command({"-M", "--name-status", "-z"}), {}, sides_.environment);
    return joined(names, counts.get());
}

Comparison::Entries Comparison::joined(std::string_view names, std::string_view counts)
{
    Entries entries;
    Pieces namePieces(names);
    Pieces countPieces(counts);
    while (const auto status = namePieces.next()) {
        if (status->empty())
            break;
        Entry entry{.status = status->front(), .oldPath = {}, .path = {}, .added = {}, .removed = {}};
        if (entry.status == 'R' || entry.status == 'C')
            entry.oldPath = namePieces.next();
        const auto path = namePieces.next();
        if (!path)
            break;
        entry.path = *path;
        std::tie(entry.added, entry.removed) = takeCounts(countPieces);
        entries.push_back(std::move(entry));
    }
    return entries;
}

void Comparison::choose(Entries& entries)
{
    std::int64_t budget = Changes::totalLimit;
    for (Entry& entry : entries) {
        if (!entry.added || !entry.removed)
            continue;
        const std::int64_t lines = *entry.added + *entry.removed;
        entry.chosen = lines <= Changes::fileLimit && lines <= budget;
        if (entry.chosen)
            budget -= lines;
    }
    if (const auto last = std::ranges::find_if(entries.rbegin(), entries.rend(), &Entry::chosen);
        last != entries.rend())
        last->isLast = true;
}

Git::Arguments Comparison::command(const Git::Arguments& options) const
{
    Git::Arguments arguments{"--literal-pathspecs"};
    for (const char* setting : defaultSettings) {
        arguments.emplace_back("-c");
        arguments.emplace_back(setting);
    }
    arguments.emplace_back("diff");
    arguments.insert(arguments.end(), defaultOptions.begin(), defaultOptions.end());
    arguments.insert(arguments.end(), options.begin(), options.end());
    arguments.insert(arguments.end(), sides_.revisions.begin(), sides_.revisions.end());
    arguments.emplace_back("--");
    return arguments;
}

/// Asks for the text in one command, if it can, and finds each section's file by its header. Where a path would take in
/// files below it (a folder that came in the place of a file), and where git, asked for some files alone, finds other
/// renames among them than among all, the files are asked for again by what happened to them.
void Comparison::readText(Entries& entries) const
{
    std::set<std::string_view> paths;
    for (const Entry& entry : entries) {
        paths.insert(entry.path);
        if (entry.oldPath)
            paths.insert(*entry.oldPath);
    }
    const auto takesInOthers = [&](const std::string& path) {
        const std::string folder = path + '/';
        const auto next = paths.lower_bound(folder);
        return next != paths.end() && next->starts_with(folder);
    };

    const bool all = std::ranges::all_of(entries, &Entry::chosen);
    Wanted wanted;
    for (Entry& entry : entries)
        if (entry.chosen && (all || !(takesInOthers(entry.path) || (entry.oldPath && takesInOthers(*entry.oldPath)))))
            wanted.push_back(&entry);
    read(wanted, {"-M"}, !all);

    const auto missing = [&](std::string_view letters) {
        Wanted left;
        for (Entry& entry : entries)
            if (entry.chosen && !entry.hunks && letters.contains(entry.status))
                left.push_back(&entry);
        return left;
    };
    for (const std::string_view letters : {"A", "D", "MTUX"})
        read(missing(letters), {"--no-renames", fmt::format("--diff-filter={}", letters)});
    for (Entry* entry : missing("RC"))
        read({entry}, {"-M", "--diff-filter=R"});
}

/// Fills in the hunks of the wanted entries. Without paths git is asked for everything.
void Comparison::read(const Wanted& wanted, const Git::Arguments& options, bool byPath) const
{
    if (wanted.empty())
        return;
    if (!byPath)
        return readBatch(wanted, options, {});
    Wanted batch;
    Git::Arguments paths;
    std::size_t length = 0;
    for (Entry* entry : wanted) {
        if (length > longestPaths) {
            readBatch(batch, options, paths);
            batch.clear();
            paths.clear();
            length = 0;
        }
        batch.push_back(entry);
        if (entry->oldPath)
            paths.push_back(*entry->oldPath);
        paths.push_back(entry->path);
        constexpr std::size_t pointer = 16; // what the system counts for an argument besides its bytes
        length += entry->path.size() + entry->oldPath.value_or("").size() + 2 * pointer;
    }
    readBatch(batch, options, paths);
}

void Comparison::readBatch(const Wanted& wanted, const Git::Arguments& options, const Git::Arguments& paths) const
{
    std::map<std::pair<std::string, std::string>, Entry*> byName;
    for (Entry* entry : wanted)
        byName.emplace(sectionName(entry->oldPath, entry->path), entry);
    Git::Arguments arguments = options;
    arguments.push_back(fmt::format("--unified={}", Changes::contextLines));
    arguments = command(arguments);
    arguments.insert(arguments.end(), paths.begin(), paths.end());
    const std::string diff = git_.output(arguments, {}, sides_.environment);
    const auto last = std::ranges::find_if(byName, [](const auto& named) { return named.second->isLast; });
    const std::string_view text = toBeRead(diff, last == byName.end() ? nullptr : &last->first.first);
    for (DiffReader::Section& section : DiffReader(text).read())
        if (const auto found = byName.find({section.header, section.target}); found != byName.end())
            found->second->hunks = std::move(section.hunks);
}

} // namespace veltry
