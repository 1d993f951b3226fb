#include "Platform/TemporaryFile.h"

#include "Platform/Files.h"
#include "Platform/SystemError.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <utility>

namespace veltry {

namespace {

constexpr unsigned mode = 0644;
constexpr int mostTries = 8; // others may put a file there at the same moment

bool isMissingService(int code)
{
    return code == EOPNOTSUPP || code == EISDIR || code == EINVAL;
}

} // namespace

TemporaryFile::TemporaryFile(const std::filesystem::path& folder)
    : file_(Files::tryOpen(folder, O_TMPFILE | O_RDWR, mode))
{
    if (!file_ && isMissingService(errno)) {
        std::string name = folder / ".download-XXXXXX";
        file_.reset(::mkostemp(name.data(), O_CLOEXEC));
        if (file_)
            name_ = std::move(name);
    }
    if (!file_)
        throw SystemError("could not make a file in " + folder.string());
}

TemporaryFile::~TemporaryFile()
{
    if (!name_.empty())
        Files::remove(name_);
}

void TemporaryFile::keep(const std::filesystem::path& target)
{
    if (!name_.empty()) {
        if (::fchmod(file_.get(), mode) != 0 || ::rename(name_.c_str(), target.c_str()) != 0)
            throw SystemError("could not write " + target.string());
        name_.clear();
        return;
    }
    const std::string open = "/proc/self/fd/" + std::to_string(file_.get());
    for (int tries = 0; ::linkat(AT_FDCWD, open.c_str(), AT_FDCWD, target.c_str(), AT_SYMLINK_FOLLOW) != 0; ++tries) {
        const int code = errno;
        if (code != EEXIST || tries == mostTries)
            throw SystemError("could not write " + target.string(), code);
        Files::remove(target);
    }
}

} // namespace veltry
