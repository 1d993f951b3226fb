#pragma once

namespace veltry {

/// The number by which the system knows a process; a process group has that of the process which leads it.
using ProcessID = int;

} // namespace veltry
