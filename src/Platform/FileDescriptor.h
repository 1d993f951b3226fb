#pragma once

#include <utility>

namespace veltry {

/// Owns one descriptor and closes it. All of ours are born close-on-exec.
class FileDescriptor {
public:
    explicit FileDescriptor(int fd = -1) noexcept : fd_(fd) {}
    FileDescriptor(FileDescriptor&& other) noexcept : fd_(other.release()) {}
    FileDescriptor& operator=(FileDescriptor&& other) noexcept
    {
        reset(other.release());
        return *this;
    }
    ~FileDescriptor() { reset(); }

    [[nodiscard]] int get() const noexcept { return fd_; }
    [[nodiscard]] explicit operator bool() const noexcept { return fd_ >= 0; }
    [[nodiscard]] int release() noexcept { return std::exchange(fd_, -1); }
    /// Closes what is held and holds `fd` instead. Failures of close(2) are not reported, and it isn't repeated on
    /// EINTR: on Linux the number is free again by then.
    void reset(int fd = -1) noexcept;

    /// A descriptor of its own on the same open file. Throws SystemError.
    [[nodiscard]] FileDescriptor duplicate() const { return duplicateOf(fd_); }
    /// The same of a descriptor that somebody else owns.
    [[nodiscard]] static FileDescriptor duplicateOf(int fd);

private:
    int fd_;
};

struct Pipe {
    FileDescriptor reading;
    FileDescriptor writing;

    /// Both ends lie above the standard descriptors, so that a child's redirections can't meet them. Throws
    /// SystemError.
    [[nodiscard]] static Pipe make();
};

} // namespace veltry
