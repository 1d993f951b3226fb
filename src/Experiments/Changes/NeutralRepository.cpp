#include "Experiments/Changes/NeutralRepository.h"

#include "Base/Text.h"
#include "Platform/Files.h"
#include "Platform/SystemError.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <iterator>
#include <vector>

namespace veltry {

namespace {

/// An entry of the configuration: "section.name" or "section.sub.section.name", the value after a line feed.
struct Entry {
    explicit Entry(std::string_view item)
    {
        const std::size_t end = item.find('\n');
        if (end != std::string_view::npos)
            value = item.substr(end + 1);
        const std::string_view key = item.substr(0, end);
        const std::size_t first = key.find('.');
        const std::size_t last = key.rfind('.');
        section = key.substr(0, first);
        name = last == std::string_view::npos ? std::string_view() : key.substr(last + 1);
        if (first != last)
            subsection = key.substr(first + 1, last - first - 1);
    }

    [[nodiscard]] bool isDriver() const { return section == "diff" && subsection; }

    /// Says of a remote that it has what isn't here.
    [[nodiscard]] bool isPromise() const
    {
        return (section == "remote" && name == "promisor") || (section == "extensions" && name == "partialclone");
    }

    /// What decides how git opens a repository, converts a file's contents and finds what changed. Files that are read
    /// into the configuration are in it already, and so is the one beside it.
    [[nodiscard]] bool isNeeded(bool mayFetch) const
    {
        constexpr std::array<std::string_view, 8> always = {"core",   "diff",  "extensions", "feature",
                                                            "filter", "index", "pack",       "safe"};
        constexpr std::array<std::string_view, 6> toFetch = {"credential", "http", "protocol", "remote", "ssh", "url"};
        if (section == "extensions" && name == "worktreeconfig")
            return false;
        return std::ranges::find(always, section) != always.end() ||
               (mayFetch && std::ranges::find(toFetch, section) != toFetch.end());
    }

    std::string_view section; // in lower case, as the name
    std::optional<std::string_view> subsection;
    std::string_view name;
    std::optional<std::string_view> value; // none for a flag that is set by its name alone
};

std::string quoted(std::string_view value)
{
    std::string result = "\"";
    for (const char c : value) {
        if (c == '"' || c == '\\')
            result += '\\';
        if (c == '\n')
            result += "\\n";
        else
            result += c;
    }
    return result + '"';
}

void append(std::string& file, const Entry& entry)
{
    const std::string subsection = entry.subsection ? ' ' + quoted(*entry.subsection) : "";
    const std::string value = entry.value ? " = " + quoted(*entry.value) : "";
    fmt::format_to(std::back_inserter(file), "[{}{}]\n\t{}{}\n", entry.section, subsection, entry.name, value);
}

} // namespace

std::optional<std::string> NeutralRepository::withoutDrivers(std::string_view list)
{
    std::vector<Entry> entries;
    for (const std::string_view item : text::split(list, '\0'))
        entries.emplace_back(item);
    if (std::ranges::none_of(entries, &Entry::isDriver))
        return std::nullopt;
    const bool mayFetch = std::ranges::any_of(entries, &Entry::isPromise);
    std::string file;
    for (const Entry& entry : entries)
        if (!entry.name.empty() && !entry.isDriver() && entry.isNeeded(mayFetch))
            append(file, entry);
    return file;
}

NeutralRepository::NeutralRepository(const Git& git, const std::filesystem::path& common)
{
    const std::optional<std::string> configuration = withoutDrivers(git.output({"config", "-z", "--list"}));
    ownConfiguration_ = configuration.has_value();
    if (configuration || Files::exists(common / "info/attributes"))
        makeStandIn(common, configuration ? &*configuration : nullptr);
}

void NeutralRepository::makeStandIn(const std::filesystem::path& common, const std::string* configuration)
{
    const ScratchFolder& standIn = standIn_.emplace("veltry-repository");
    std::error_code error;
    for (std::filesystem::directory_iterator entry(common, error), end; !error && entry != end;
         entry.increment(error)) {
        const std::filesystem::path name = entry->path().filename();
        if (name == "info" || (name == "config" && configuration))
            continue;
        std::filesystem::create_symlink(entry->path(), standIn.path() / name, error);
        if (error)
            break;
    }
    if (error)
        throw SystemError("could not stand in for " + common.string(), error.value());
    if (configuration)
        standIn.write("config", *configuration);
}

Git::Environment NeutralRepository::environment() const
{
    Git::Environment environment{
        {"GIT_ATTR_NOSYSTEM", "1"},   {"GIT_DIFF_OPTS", ""},         {"GIT_GLOB_PATHSPECS", "0"},
        {"GIT_ICASE_PATHSPECS", "0"}, {"GIT_NOGLOB_PATHSPECS", "0"},
    };
    if (standIn_)
        environment["GIT_COMMON_DIR"] = standIn_->path();
    if (ownConfiguration_) {
        environment["GIT_CONFIG_GLOBAL"] = *standIn_ / "config";
        environment["GIT_CONFIG_NOSYSTEM"] = "1";
        environment["GIT_CONFIG_PARAMETERS"] = "";
        environment["GIT_CONFIG_COUNT"] = "0";
    }
    return environment;
}

} // namespace veltry
