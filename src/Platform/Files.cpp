#include "Platform/Files.h"

#include "Platform/OpenAt.h"
#include "Platform/SystemError.h"
#include "Platform/TemporaryFile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>

namespace veltry {

FileDescriptor openAt(int folder, const char* name, int flags, unsigned mode) noexcept
{
    int fd = -1;
    do
        fd = ::openat(folder, name, flags | O_CLOEXEC, mode);
    while (fd < 0 && errno == EINTR);
    return FileDescriptor(fd);
}

FileDescriptor onlyPlain(FileDescriptor file) noexcept
{
    struct stat status{};
    if (::fstat(file.get(), &status) == 0 && S_ISREG(status.st_mode))
        return file;
    file.reset(); // closing may set errno itself
    errno = S_ISDIR(status.st_mode) ? EISDIR : ENOTSUP;
    return file;
}

} // namespace veltry

namespace veltry::Files {

namespace {

int flags(Purpose purpose) noexcept
{
    switch (purpose) {
    case forReading:
        return O_RDONLY;
    case forReadingPlain:
        return O_RDONLY | O_NONBLOCK; // without it a named pipe would hold us up before we could ask what it is
    case forWriting:
        // At a named pipe that nobody reads this fails instead of waiting.
        return O_WRONLY | O_APPEND | O_NONBLOCK;
    case forAppending:
        return O_WRONLY | O_APPEND | O_CREAT;
    case forReplacing:
        return O_WRONLY | O_APPEND | O_CREAT | O_TRUNC;
    }
    return O_RDONLY;
}

/// Where a write through links would land. A link that leads nowhere is replaced itself.
std::filesystem::path resolved(const std::filesystem::path& path)
{
    std::error_code error;
    std::filesystem::path target = std::filesystem::canonical(path, error);
    return error ? path : target;
}

} // namespace

FileDescriptor open(const std::filesystem::path& path, Purpose purpose)
{
    FileDescriptor file = tryOpen(path, purpose);
    if (!file)
        throw SystemError("could not open " + path.string());
    return file;
}

FileDescriptor tryOpen(const std::filesystem::path& path, Purpose purpose) noexcept
{
    // A terminal that lies there must not become the one of our session.
    FileDescriptor file = openAt(AT_FDCWD, path.c_str(), flags(purpose) | O_NOCTTY, 0644);
    return purpose == forReadingPlain && file ? onlyPlain(std::move(file)) : std::move(file);
}

std::string read(const std::filesystem::path& path)
{
    return read(open(path, forReading), path.string());
}

std::string read(const FileDescriptor& file, std::string_view what)
{
    std::string contents;
    // What a file in /proc says of itself is 0; the loop reads on all the same.
    contents.resize(size(file));
    std::size_t count = 0;
    while (true) {
        if (count == contents.size())
            contents.resize(std::max<std::size_t>(4096, contents.size() * 2));
        const ssize_t got = ::read(file.get(), contents.data() + count, contents.size() - count);
        if (got < 0 && errno == EINTR)
            continue;
        if (got < 0)
            throw SystemError("could not read " + std::string(what));
        if (got == 0)
            break;
        count += static_cast<std::size_t>(got);
    }
    contents.resize(count);
    return contents;
}

std::optional<std::string> readIfPossible(const std::filesystem::path& path)
{
    try {
        return read(path);
    } catch (const SystemError&) {
        return std::nullopt; // most often it isn't there, and the caller has its own answer to that
    }
}

std::optional<std::string> readStart(const std::filesystem::path& path, std::size_t count)
{
    const FileDescriptor file = tryOpen(path, forReadingPlain);
    if (!file)
        return std::nullopt;
    try {
        return readAt(file, 0, count);
    } catch (const SystemError&) {
        return std::nullopt; // the disk failed: to the caller it isn't there
    }
}

std::string readAt(const FileDescriptor& file, std::uint64_t offset, std::size_t count)
{
    std::string bytes(count, '\0');
    bytes.resize(readInto(bytes, file, offset));
    return bytes;
}

std::size_t readInto(std::span<char> buffer, const FileDescriptor& file, std::uint64_t offset)
{
    std::size_t done = 0;
    while (done < buffer.size()) {
        // Fewer bytes than were asked for don't mean the end; only none does.
        const ssize_t got =
            ::pread(file.get(), buffer.data() + done, buffer.size() - done, static_cast<off_t>(offset + done));
        if (got < 0 && errno == EINTR)
            continue;
        if (got < 0)
            throw SystemError("could not read a file");
        if (got == 0)
            break;
        done += static_cast<std::size_t>(got);
    }
    return done;
}

std::uint64_t size(const FileDescriptor& file) noexcept
{
    struct stat status{};
    return ::fstat(file.get(), &status) == 0 ? static_cast<std::uint64_t>(status.st_size) : 0;
}

void writeAll(const FileDescriptor& file, std::string_view bytes, std::string_view what)
{
    while (!bytes.empty()) {
        const ssize_t count = ::write(file.get(), bytes.data(), bytes.size());
        if (count < 0 && errno == EINTR)
            continue;
        if (count < 0)
            throw SystemError("could not write " + std::string(what));
        bytes.remove_prefix(static_cast<std::size_t>(count));
    }
}

bool truncate(const FileDescriptor& file, std::uint64_t size) noexcept
{
    return ::ftruncate(file.get(), static_cast<off_t>(size)) == 0;
}

void writeAtomically(const std::filesystem::path& path, std::string_view bytes)
{
    const std::filesystem::path target = resolved(path);
    struct stat old{};
    // As root we could put a plain file in the place of /dev/null, for the whole machine.
    if (::lstat(target.c_str(), &old) == 0 && (S_ISCHR(old.st_mode) || S_ISBLK(old.st_mode)))
        throw SystemError("could not write " + target.string(), ENOTSUP);
    TemporaryFile::replace(TemporaryFile::folderOf(target), target.filename(), bytes, target.string());
}

void createFolders(const std::filesystem::path& path)
{
    std::error_code error;
    std::filesystem::create_directories(path, error);
    if (error)
        throw SystemError("could not make the folder " + path.string(), error.value());
    if (!isFolder(path))
        throw SystemError("could not make the folder " + path.string(), ENOTDIR);
}

void createPrivateFolders(const std::filesystem::path& path)
{
    if (path.empty() || isFolder(path))
        return;
    createPrivateFolders(path.parent_path());
    if (::mkdir(path.c_str(), 0700) != 0 && !isFolder(path)) // somebody may make it at the same moment
        throw SystemError("could not make the folder " + path.string());
}

bool createFolder(const std::filesystem::path& path)
{
    // If two make it at the same moment, mkdir tells one of them that it was first.
    if (::mkdir(path.c_str(), 0777) == 0)
        return true;
    if (errno == EEXIST)
        return false;
    throw SystemError("could not make the folder " + path.string());
}

bool exists(const std::filesystem::path& path) noexcept
{
    struct stat status{};
    return ::lstat(path.c_str(), &status) == 0;
}

bool isFolder(const std::filesystem::path& path) noexcept
{
    std::error_code error;
    return std::filesystem::is_directory(path, error);
}

bool isExecutable(const std::filesystem::path& path) noexcept
{
    return ::access(path.c_str(), X_OK) == 0;
}

void move(const std::filesystem::path& from, const std::filesystem::path& to)
{
    std::error_code error;
    std::filesystem::rename(from, to, error);
    // A rename can't leave its file system. The copy is whole before the original goes.
    if (error == std::errc::cross_device_link) {
        Files::copy(from, to);
        Files::remove(from);
        return;
    }
    if (error)
        throw SystemError("could not move " + from.string() + " to " + to.string(), error.value());
}

void copy(const std::filesystem::path& from, const std::filesystem::path& to)
{
    std::error_code error;
    std::filesystem::copy_file(from, to, error);
    if (error)
        throw SystemError("could not copy " + from.string() + " to " + to.string(), error.value());
}

bool remove(const std::filesystem::path& path) noexcept
{
    return ::unlink(path.c_str()) == 0;
}

} // namespace veltry::Files
