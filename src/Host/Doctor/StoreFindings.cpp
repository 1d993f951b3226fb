#include "Host/Doctor/StoreFindings.h"

#include "Base/Numbers.h"
#include "Base/Text.h"
#include "Config/VeltrySettings.h"
#include "Host/Context.h"
#include "Platform/FileSystemFacts.h"
#include "Platform/Files.h"
#include "Projects/ProjectStore.h"

#include <fmt/format.h>

namespace veltry::StoreFindings {

namespace {

using Level = Finding::Level;
using State = Store::State;

constexpr std::uint64_t gigabyte = 1'000'000'000;
constexpr std::size_t problemsTold = 3;

Store ill(const std::filesystem::path& path, const std::string& problems)
{
    return {
        State::ill,
        {"store", Level::wrong, fmt::format("{} isn't whole: {}.", path.string(), problems),
         "Copy it first. Then take out what can be read: sqlite3 FILE .recover | sqlite3 NEWFILE."},
        nullptr};
}

/// Opened only once it was seen to be sound: opening writes, and what isn't whole is left as it is.
Store read(const std::filesystem::path& path)
{
    std::vector<std::string> problems;
    try {
        problems = ProjectStore::integrityProblems(path);
    } catch (const DatabaseError& error) {
        // A busy file or one that can't be read says nothing about what is in it.
        if (!error.isDamage())
            throw;
        problems = {error.message};
    }
    if (problems.empty()) {
        // Opened first: GCC 12 destroys the finding of a result twice where what stands behind it throws.
        auto opened = std::make_shared<ProjectStore>(path);
        return {State::sound, {"store", Level::good, path.string()}, std::move(opened)};
    }
    const std::size_t more = problems.size() > problemsTold ? problems.size() - problemsTold : 0;
    problems.resize(problems.size() - more);
    std::string told = text::oneLine(text::joined(problems, "; "));
    if (more > 0)
        told += fmt::format("; and {} more", more);
    return ill(path, told);
}

Finding place(const std::string& what, const FileSystemFacts::FileSystem& system, bool holdsStore)
{
    const std::string subject = "disk of " + what;
    const std::string type = system.type.empty() ? "An unknown file system" : system.type;
    if (!system.isNetwork)
        return {subject, Level::good, type + ", on this machine"};
    if (holdsStore)
        return {
            subject, Level::wrong,
            type + " is a network file system. SQLite's shared memory doesn't span machines, and locks may not hold: "
                   "two machines at once damage the store.",
            "Put the store on a disk of this machine (VELTRY_DATABASE_PATH, XDG_DATA_HOME), or use it from one "
            "machine alone."};
    return {
        subject, Level::advice,
        type +
            " is a network file system. It doesn't tell when a log grows, so lines get their times once a second, and "
            "a lock may not show that a run's supervisor lives.",
        "Put the runs on a disk of this machine (XDG_DATA_HOME)."};
}

} // namespace

Store store(const std::filesystem::path& path)
{
    if (!Files::exists(path))
        return {
            State::absent,
            {"store", Level::advice, fmt::format("There is none at {} yet.", path.string()),
             "Register a project: veltry init, in the folder of your code; or begin one: veltry new TITLE."},
            nullptr};
    const auto wrong = [&](State state, const std::string& text, const std::string& advice) {
        return Store{state, {"store", Level::wrong, fmt::format("{} {}", path.string(), text), advice}, nullptr};
    };
    try {
        // First, since another program's database is not ours to examine any further.
        if (ProjectStore::isForeign(path))
            return wrong(
                State::refused, "is another program's database: it has tables, and none of Veltry's.",
                "Name the store with --db or VELTRY_DATABASE_PATH.");
        return read(path);
    } catch (const ProjectStoreError&) {
        return wrong(State::newer, "was made by a newer Veltry.", "Use the newer program; this one changes nothing.");
    } catch (const DatabaseError& error) {
        if (error.isDamage())
            return wrong(
                State::damaged, fmt::format("is damaged: {}.", error.message),
                "Take what can be read out of a copy: sqlite3 COPY .recover | sqlite3 NEWFILE. Or set it aside and "
                "begin anew: veltry doctor --set-aside.");
        if (error.isBusy())
            return wrong(
                State::busy, "is busy: another program has been writing to it for ten seconds.",
                "Try again, or find the program: fuser FILE.");
        return wrong(
            State::refused, fmt::format("can't be opened: {}.", error.message),
            "Is the path right, and may you write there?");
    } catch (const Error& error) {
        return wrong(
            State::refused, fmt::format("can't be opened: {}.", error.description()),
            "Is the path right, and may you write there?");
    }
}

Finding freeDisk(std::uint64_t freeBytes)
{
    Finding finding{"free disk", Level::good, shownBytes(freeBytes)};
    if (freeBytes < 10 * gigabyte) {
        finding.level = freeBytes < gigabyte ? Level::wrong : Level::advice;
        finding.text = fmt::format("Only {} are free where runs write.", shownBytes(freeBytes));
        finding.advice = "See what takes the room: veltry disk --all. Free what git has as well: veltry disk --free.";
    }
    return finding;
}

std::vector<Finding> places(const std::filesystem::path& store, const std::filesystem::path& runs)
{
    std::vector<Finding> findings;
    if (const auto system = FileSystemFacts::of(store))
        findings.push_back(place("store", *system, true));
    if (const auto system = FileSystemFacts::of(runs)) {
        findings.push_back(place("runs", *system, false));
        findings.push_back(freeDisk(system->freeBytes));
    }
    return findings;
}

std::vector<Finding> projects(const ProjectStore& store)
{
    std::vector<Finding> findings;
    for (const Project& project : store.projects())
        if (!project.folders.empty() && !Files::isFolder(project.folders.front()))
            findings.push_back(
                {project.name, Level::advice, fmt::format("Its folder {} is gone.", project.folders.front().string()),
                 std::string(Context::movedFolder)});
    return findings;
}

std::vector<Finding> settings(const std::filesystem::path& file)
{
    const std::optional<std::string> text = Files::readIfPossible(file);
    if (!text)
        return {{"settings", Level::good, fmt::format("There is no {}, so the defaults hold.", file.string())}};
    if (!text::isValidUTF8(*text))
        return {
            {"settings", Level::wrong, fmt::format("{} isn't UTF-8 text, so the defaults hold.", file.string()),
             "Save it as UTF-8."}};
    try {
        std::vector<Finding> findings;
        for (const std::string& warning : VeltrySettings::read(*text).warnings)
            findings.push_back(
                {"settings", Level::advice, warning + ".", fmt::format("Mend it in {}.", file.string())});
        if (findings.empty())
            findings.push_back({"settings", Level::good, file.string()});
        return findings;
    } catch (const TOML::Failure& failure) {
        return {
            {"settings", Level::wrong,
             fmt::format("{} can't be read, so the defaults hold: {}.", file.string(), failure.description()),
             "Mend the line."}};
    }
}

} // namespace veltry::StoreFindings
