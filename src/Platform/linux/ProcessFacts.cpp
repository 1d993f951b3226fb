#include "Platform/ProcessFacts.h"

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

ProcessID id() noexcept
{
    return ::getpid();
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

} // namespace veltry::ProcessFacts
