#pragma once

#include "Platform/FileDescriptor.h"

/// The standard streams for those who read and write them beside the main thread, each a descriptor of its own on the
/// same open file. Throws SystemError.
namespace veltry::StandardStreams {

[[nodiscard]] FileDescriptor input();
[[nodiscard]] FileDescriptor output();

} // namespace veltry::StandardStreams
