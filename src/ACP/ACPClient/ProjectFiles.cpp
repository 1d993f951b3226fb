#include "ACP/ACPClient/ProjectFiles.h"

#include "ACP/JSONRPCConnection/JSONRPCError.h"
#include "Base/Text.h"
#include "Platform/FolderRoot.h"
#include "Platform/SystemError.h"

#include <algorithm>

namespace veltry::ProjectFiles {

namespace {

[[noreturn]] void refuse()
{
    throw JSONRPCError::invalidParams("path is outside the project");
}

/// The path without empty parts and ".".
std::string normalized(const std::string& path)
{
    if (!path.starts_with('/'))
        throw JSONRPCError::invalidParams("path must be absolute");
    std::string result;
    for (const std::string_view part : text::split(path, '/')) {
        // ".." is refused and not resolved: after a link it leads elsewhere than in the text. At a NUL the system
        // would see the path end.
        if (part == ".." || part.find('\0') != std::string_view::npos)
            refuse();
        if (!part.empty() && part != ".")
            result.append("/").append(part);
    }
    return result;
}

struct Spot {
    FolderRoot root;
    std::filesystem::path place; ///< below the root
};

/// Where the path lies, in the first of the folders that has it.
Spot find(std::span<const std::filesystem::path> roots, const std::string& path)
{
    const std::string wanted = normalized(path);
    const auto tryRoot = [&wanted](const std::filesystem::path& folder) -> std::optional<Spot> {
        std::optional<FolderRoot> root = FolderRoot::open(folder);
        std::optional<std::filesystem::path> place = root ? root->placeOf(wanted) : std::nullopt;
        return place ? std::optional(Spot{std::move(*root), std::move(*place)}) : std::nullopt;
    };
    // The first one comes last: its refusal is the one that is told.
    for (const std::filesystem::path& folder : roots.subspan(1))
        if (std::optional<Spot> spot = tryRoot(folder))
            return std::move(*spot);
    if (std::optional<Spot> spot = tryRoot(roots.front()))
        return std::move(*spot);
    refuse();
}

} // namespace

std::string read(std::span<const std::filesystem::path> roots, const ReadTextFileParams& file)
{
    const Spot spot = find(roots, file.path);
    std::string contents;
    try {
        contents = spot.root.read(spot.place);
    } catch (const SystemError& error) {
        throw JSONRPCError::internal(error.description());
    }
    // Repaired, it would come back damaged in the agent's next write.
    if (!text::isValidUTF8(contents))
        throw JSONRPCError::internal("could not read " + file.path + ": it is not UTF-8 text");
    return excerpt(std::move(contents), file.line, file.limit);
}

void write(std::span<const std::filesystem::path> roots, const WriteTextFileParams& file)
{
    const Spot spot = find(roots, file.path);
    try {
        spot.root.writeAtomically(spot.place, file.content);
    } catch (const SystemError& error) {
        throw JSONRPCError::internal(error.description());
    }
}

std::string excerpt(std::string text, const std::optional<std::int64_t>& line, const std::optional<std::int64_t>& limit)
{
    if (!line && !limit)
        return text;
    std::string_view rest = text;
    for (std::int64_t number = 1; number < line.value_or(1); ++number) {
        const std::size_t end = rest.find('\n');
        if (end == std::string_view::npos)
            return {};
        rest.remove_prefix(end + 1);
    }
    // One past the line feed of the last line that is taken: line feeds stand between lines of the answer, not at its
    // end.
    std::size_t past = limit ? 0 : rest.size() + 1;
    for (std::int64_t taken = 0; limit && taken < *limit && past <= rest.size(); ++taken)
        past = std::min(rest.find('\n', past), rest.size()) + 1;
    return std::string(rest.substr(0, past > 0 ? past - 1 : 0));
}

} // namespace veltry::ProjectFiles
