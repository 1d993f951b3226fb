#include "Projects/Templates.h"

#include "Base/Address.h"
#include "Base/Text.h"
#include "Base/UUID.h"
#include "Platform/Async/Fetch.h"
#include "Platform/ChildProcess.h"
#include "Platform/Files.h"
#include "Platform/ProcessFacts.h"
#include "Platform/TemporaryFile.h"

#include <asio/error.hpp>
#include <asio/system_error.hpp>
#include <asio/this_coro.hpp>
#include <fmt/format.h>

#include <algorithm>
#include <set>

namespace veltry::Templates {

namespace {

constexpr const char* tarProgram = "/usr/bin/tar";
constexpr std::string_view builtAddress = VELTRY_TEMPLATES_URL;
constexpr const char* installedArchive = "share/veltry/templates.tar.gz"; // below the folder that `bin` lies in

Missing noTemplate(std::string_view name)
{
    return Missing(fmt::format("There is no template {}.", name));
}

Failure notUnpacked(std::string_view why)
{
    return Failure(fmt::format("The template could not be unpacked: {}", text::trimmed(text::repaired(why))));
}

asio::awaitable<std::unique_ptr<Leftover>> download(WebAddress from, std::shared_ptr<HTTPSession> session)
{
    TemporaryFile file(ScratchFolder::above());
    HTTPSession::Request request{.address = std::move(from.text), .file = file.file().duplicate()};
    const asio::any_io_executor executor = co_await asio::this_coro::executor;
    const HTTPSession::Outcome outcome = co_await veltry::fetch(executor, std::move(session), std::move(request));
    if (!outcome)
        throw HTTPSession::Failure(outcome.error());
    const bool isHTTP = outcome->status != 0;
    if (isHTTP && outcome->status != 200)
        throw Failure(fmt::format("The templates could not be downloaded: HTTP {}.", outcome->status));
    auto kept = std::make_unique<Leftover>(ScratchFolder::above() / ("veltry-templates-" + UUID::random().text()));
    file.keep(kept->path());
    co_return kept;
}

ChildProcess::Output tar(
    const char* action, const std::filesystem::path& archive, const std::vector<std::string>& options = {})
{
    ChildProcess::Command command{
        .executable = tarProgram,
        .arguments = {action, std::filesystem::absolute(archive).string(), "--force-local"},
        .environment = ProcessFacts::environment()};
    command.arguments.insert(command.arguments.end(), options.begin(), options.end());
    command.environment.erase("TAR_OPTIONS"); // would be read as if it stood here
    command.environment["LC_ALL"] = "C.UTF-8";
    command.environment["LANGUAGE"] = "";
    return ChildProcess::run(std::move(command));
}

/// The names of the members, a folder's with a slash at its end.
std::vector<std::string> membersOf(const std::filesystem::path& archive)
{
    const ChildProcess::Output listed = tar("-tzf", archive);
    if (listed.exitNumber != 0)
        throw notUnpacked(listed.error);
    std::vector<std::string> members;
    for (const std::string_view member : text::split(listed.output, '\n'))
        if (!member.empty())
            members.emplace_back(member);
    return members;
}

/// What stands before a template's name in the archive's members: "*/" or, where all are written with a dot in front
/// and lie in folders of one folder, "./*/".
std::string_view prefixOf(const std::vector<std::string>& members)
{
    std::set<std::string_view> tops;
    bool isDeep = false;
    for (const std::string& member : members) {
        if (!member.starts_with("./"))
            return "*/";
        const auto folders = text::split(member, '/');
        if (!folders[1].empty())
            tops.insert(folders[1]);
        isDeep = isDeep || folders.size() > 3;
    }
    return tops.size() == 1 && isDeep ? "./*/" : "*/";
}

/// Runs tar on the template's entries. Members that it doesn't find are no failure, and then it did nothing. It strips
/// leading slashes, refuses ".." and makes links that lead out only when all else is written.
std::string tarOne(
    const char* action, const std::string& pattern, const std::filesystem::path& archive,
    std::vector<std::string> options)
{
    for (const char* argument :
         {"--ignore-case", "--exclude=.git", "--no-ignore-case", "--wildcards", "--no-wildcards-match-slash"})
        options.emplace_back(argument);
    options.push_back(pattern);
    const ChildProcess::Output result = tar(action, archive, options);
    const std::string onlyMissing = fmt::format(
        "{0}: {1}: Not found in archive\n{0}: Exiting with failure status due to previous errors\n", tarProgram,
        pattern);
    if (result.exitNumber != 0 && result.error != onlyMissing)
        throw notUnpacked(result.error);
    return result.output;
}

void unpack(const std::string& name, const std::filesystem::path& folder, const std::filesystem::path& archive)
{
    const std::string_view prefix = prefixOf(membersOf(archive));
    const std::string pattern = fmt::format("{}{}", prefix, name);
    // The first letter of a line is what `ls` writes for the kind. As root, tar would make devices.
    const std::string members = tarOne("-tvzf", pattern, archive, {});
    for (const std::string_view line : text::split(members, '\n'))
        if (!line.empty() && (line.front() == 'b' || line.front() == 'c' || line.front() == 'p'))
            throw notUnpacked("It holds a device.");
    tarOne(
        "-xzf", pattern, archive,
        {"--no-unquote", "-C", folder.string(), "--strip-components",
         std::to_string(std::ranges::count(prefix, '/') + 1), "--no-same-owner", "--no-same-permissions"});
    std::error_code unreadable; // counts as empty
    if (std::filesystem::directory_iterator(folder, unreadable) == std::filesystem::directory_iterator())
        throw noTemplate(name);
}

std::vector<std::string> namesIn(const std::filesystem::path& archive)
{
    const std::vector<std::string> members = membersOf(archive);
    const auto above = static_cast<std::size_t>(std::ranges::count(prefixOf(members), '/'));
    std::set<std::string> names;
    for (const std::string& member : members) {
        const std::vector<std::string_view> folders = text::split(member, '/');
        if (folders.size() > above + 1 && isName(folders[above]))
            names.emplace(folders[above]);
    }
    return {names.begin(), names.end()};
}

} // namespace

bool isName(std::string_view name)
{
    const auto isLetterOrDigit = [](char c) { return (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9'); };
    return !name.empty() && isLetterOrDigit(name.front()) &&
           std::ranges::all_of(name, [&](char c) { return isLetterOrDigit(c) || c == '-'; });
}

/// Throws asio::system_error if it was cancelled meanwhile.
asio::awaitable<LocalArchive> local(Archive from, std::shared_ptr<HTTPSession> session)
{
    std::unique_ptr<Leftover> downloaded;
    if (WebAddress* address = std::get_if<WebAddress>(&from)) {
        asio::awaitable<std::unique_ptr<Leftover>> transfer = download(std::move(*address), std::move(session));
        downloaded = co_await std::move(transfer);
    }
    const asio::cancellation_state cancellation = co_await asio::this_coro::cancellation_state;
    if (cancellation.cancelled() != asio::cancellation_type::none)
        throw asio::system_error(asio::error::operation_aborted);
    if (downloaded)
        co_return LocalArchive(std::move(downloaded));
    co_return LocalArchive(std::get<std::filesystem::path>(std::move(from)));
}

Archive archive(std::string_view location)
{
    std::optional<std::string> address = Address::absolute(location);
    if (!address)
        return std::filesystem::path(location);
    if (std::optional<std::string> file = Address::filePath(*address))
        return std::filesystem::path(*file);
    return WebAddress{std::move(*address)};
}

Archive archive()
{
    if (const auto named = ProcessFacts::variable("VELTRY_TEMPLATES_ARCHIVE"); named && !named->empty())
        return archive(*named);
    if (!builtAddress.empty())
        return archive(builtAddress);
    return ProcessFacts::executable().parent_path().parent_path() / installedArchive;
}

asio::awaitable<void> fetch(
    std::string name, std::filesystem::path folder, Archive from, std::shared_ptr<HTTPSession> session)
{
    if (!isName(name))
        throw noTemplate(name);
    const LocalArchive archive = co_await local(std::move(from), std::move(session));
    unpack(name, folder, archive.path());
}

asio::awaitable<std::vector<std::string>> names(Archive from, std::shared_ptr<HTTPSession> session)
{
    const LocalArchive archive = co_await local(std::move(from), std::move(session));
    co_return namesIn(archive.path());
}

} // namespace veltry::Templates
