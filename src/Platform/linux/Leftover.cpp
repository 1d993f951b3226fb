#include "Platform/Leftover.h"

#include "Base/UUID.h"
#include "Platform/Files.h"
#include "Platform/SystemError.h"

#include <fcntl.h>
#include <limits.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <cstring>

namespace veltry {

namespace {

constexpr int deepest = 200;
constexpr std::size_t none = SIZE_MAX;

/// What the handler of a signal reads. `isSet` comes last and goes first.
struct Slot {
    std::atomic<bool> isTaken = false;
    std::atomic<bool> isSet = false;
    bool onlyIfEmpty = false;
    std::array<char, PATH_MAX> path{};
};

std::array<Slot, 16> slots;

/// What getdents64(2) writes.
struct Entry {
    std::uint64_t inode;
    std::int64_t offset;
    std::uint16_t length;
    std::uint8_t type;
    char name[1]; // NOLINT(modernize-avoid-c-arrays): as long as it is
};

void removeTree(int parent, const char* name, int depth) noexcept;

/// opendir(3) takes memory, which a signal's handler must not.
void empty(int folder, int depth) noexcept
{
    alignas(Entry) std::array<char, 4096> buffer; // NOLINT(cppcoreguidelines-pro-type-member-init): filled below
    while (true) {
        const long count = ::syscall(SYS_getdents64, folder, buffer.data(), buffer.size());
        if (count <= 0)
            return;
        for (long at = 0; at < count;) {
            const auto* entry = reinterpret_cast<const Entry*>(buffer.data() + at);
            const char* name = &entry->name[0];
            if (std::strcmp(name, ".") != 0 && std::strcmp(name, "..") != 0)
                removeTree(folder, name, depth + 1);
            at += entry->length;
        }
    }
}

void removeTree(int parent, const char* name, int depth) noexcept
{
    if (::unlinkat(parent, name, 0) == 0 || errno == ENOENT || depth > deepest)
        return;
    const int folder = ::openat(parent, name, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
    if (folder >= 0) {
        empty(folder, depth);
        ::close(folder);
    }
    ::unlinkat(parent, name, AT_REMOVEDIR);
}

void remove(const char* path, bool onlyIfEmpty) noexcept
{
    if (onlyIfEmpty)
        ::rmdir(path);
    else
        removeTree(AT_FDCWD, path, 0);
}

} // namespace

Leftover::Leftover(std::filesystem::path path, What what)
    : path_(std::move(path)), slot_(none), onlyIfEmpty_(what == What::ifEmpty)
{
    if (path_.native().size() >= PATH_MAX)
        return; // no call would take it
    for (std::size_t index = 0; index < slots.size() && slot_ == none; ++index)
        if (!slots.at(index).isTaken.exchange(true))
            slot_ = index;
    if (slot_ == none)
        return; // then a signal leaves it
    Slot& slot = slots.at(slot_);
    std::strcpy(slot.path.data(), path_.c_str());
    slot.onlyIfEmpty = onlyIfEmpty_;
    slot.isSet = true;
}

Leftover::~Leftover()
{
    if (!path_.empty())
        remove(path_.c_str(), onlyIfEmpty_);
    keep();
}

void Leftover::keep() noexcept
{
    path_.clear();
    if (slot_ == none)
        return;
    slots.at(slot_).isSet = false;
    slots.at(slot_).isTaken = false;
    slot_ = none;
}

void Leftover::removeAll() noexcept
{
    for (const Slot& slot : slots)
        if (slot.isSet)
            remove(slot.path.data(), slot.onlyIfEmpty);
}

std::filesystem::path ScratchFolder::above()
{
    const char* folder = std::getenv("TMPDIR");
    return folder && folder[0] == '/' ? folder : "/tmp";
}

ScratchFolder::ScratchFolder(std::string_view name)
    : leftover_(above() / std::string(name).append("-").append(UUID::random().text()))
{
    if (::mkdir(path().c_str(), 0700) != 0)
        throw SystemError("could not make the folder " + path().string());
}

std::filesystem::path ScratchFolder::write(std::string_view name, std::string_view bytes) const
{
    std::filesystem::path path = *this / name;
    const FileDescriptor file(::open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600));
    if (!file)
        throw SystemError("could not make " + path.string());
    Files::writeAll(file, bytes, path.string());
    return path;
}

} // namespace veltry
