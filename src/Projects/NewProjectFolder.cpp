#include "Projects/NewProjectFolder.h"

#include "Base/Text.h"
#include "Platform/Files.h"
#include "Platform/StandardFolders.h"

#include <algorithm>
#include <string>

namespace veltry::NewProjectFolder {

namespace {

std::string baseName(std::string_view title)
{
    std::string name(text::trimmed(title));
    std::ranges::replace_if(name, [](char c) { return c == '/' || c == ':' || c == '\0'; }, '-');
    // Dots at the start would hide the folder, or be the one it lies in.
    const std::size_t begin = name.find_first_not_of(". ");
    if (begin == std::string::npos)
        return "Untitled";
    return name.substr(begin, name.find_last_not_of(". ") + 1 - begin);
}

} // namespace

std::filesystem::path defaultRoot()
{
    return StandardFolders::home() / "HarrowickVeltry";
}

std::filesystem::path make(std::string_view named, const std::filesystem::path& in)
{
    const std::string name = baseName(named);
    Files::createFolders(in);
    std::filesystem::path candidate = in / name;
    // By making and not by looking: two who make projects at the same moment get a folder each.
    for (int number = 2; !Files::createFolder(candidate); ++number)
        candidate = in / (name + ' ' + std::to_string(number));
    return candidate;
}

} // namespace veltry::NewProjectFolder
