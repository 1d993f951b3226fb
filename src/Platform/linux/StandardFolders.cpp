#include "Platform/StandardFolders.h"

#include <pwd.h>
#include <unistd.h>

#include <cstdlib>

namespace veltry::StandardFolders {

std::filesystem::path applicationSupport()
{
    const char* data = std::getenv("XDG_DATA_HOME");
    if (data && data[0] == '/') // the base-directory rules say to pass over a relative one
        return data;
    return home() / ".local" / "share";
}

std::filesystem::path home()
{
    if (const char* folder = std::getenv("HOME"); folder && folder[0] != '\0')
        return folder;
    if (const passwd* user = ::getpwuid(::getuid()))
        return user->pw_dir;
    return "/";
}

} // namespace veltry::StandardFolders
