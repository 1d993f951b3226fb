#include "Platform/ProcessFacts.h"

#include "Base/Text.h"
#include "Platform/Files.h"

#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <string_view>

namespace veltry::ProcessFacts {

std::filesystem::path executable()
{
    std::error_code error;
    std::filesystem::path path = std::filesystem::read_symlink("/proc/self/exe", error);
    return error ? std::filesystem::absolute(program_invocation_name) : path; // no /proc here
}

ChildProcess::Environment environment()
{
    ChildProcess::Environment variables;
    for (char** entry = environ; entry && *entry; ++entry) {
        const std::string_view text(*entry);
        if (const std::size_t equals = text.find('='); equals != std::string_view::npos)
            variables.emplace(text.substr(0, equals), text.substr(equals + 1));
    }
    return variables;
}

std::optional<std::string> variable(const std::string& name)
{
    const char* value = std::getenv(name.c_str());
    return value ? std::optional<std::string>(value) : std::nullopt;
}

std::optional<std::filesystem::path> program(const std::string& name)
{
    const std::string path = variable("PATH").value_or("");
    for (const std::string_view folder : text::split(path, ':'))
        if (std::filesystem::path file = std::filesystem::path(folder) / name;
            file.is_absolute() && Files::isExecutable(file) && !Files::isFolder(file))
            return file;
    return std::nullopt;
}

} // namespace veltry::ProcessFacts
