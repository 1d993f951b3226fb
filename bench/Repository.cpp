#include "Repository.h"

#include "Experiments/Git.h"
#include "Platform/Files.h"

#include <fmt/format.h>

namespace veltry::bench {

std::filesystem::path moduleFile(const std::filesystem::path& folder, std::int64_t number)
{
    return folder / fmt::format("part{}/module{}.py", number % 100, number);
}

std::string moduleText(std::int64_t number, std::int64_t lines, std::string_view mark)
{
    std::string text;
    for (std::int64_t line = 0; line < lines; ++line)
        text += fmt::format("VALUE_{} = {}{}\n", line, line * number, line == lines / 2 ? mark : "");
    return text;
}

void makeRepository(const std::filesystem::path& folder, std::int64_t files, std::int64_t lines)
{
    for (std::int64_t number = 0; number < 100; ++number)
        Files::createFolders(moduleFile(folder, number).parent_path());
    for (std::int64_t number = 0; number < files; ++number)
        Files::writeAll(
            Files::open(moduleFile(folder, number), Files::forAppending), moduleText(number, lines), "module");
    const Git git(folder);
    git.run({"init", "--quiet", "--initial-branch=main"});
    for (const auto& [key, value] :
         {std::pair{"user.name", "Bench"}, {"user.email", "bench@localhost"}, {"gc.auto", "0"}})
        git.run({"config", key, value});
    git.commitAll(folder, "Begin");
}

} // namespace veltry::bench
