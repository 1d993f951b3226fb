#pragma once

#include "Platform/FileDescriptor.h"

namespace veltry {

// For the sources of this module, which know flags of open(2); everybody else has the ways of Files::open().

/// openat(2), close-on-exec, and again while signals interrupt it. No descriptor where it fails, and errno tells why.
[[nodiscard]] FileDescriptor openAt(int folder, const char* name, int flags, unsigned mode = 0) noexcept;

/// What is open, if it is a plain file; else no descriptor, and errno is EISDIR or ENOTSUP.
[[nodiscard]] FileDescriptor onlyPlain(FileDescriptor file) noexcept;

} // namespace veltry
