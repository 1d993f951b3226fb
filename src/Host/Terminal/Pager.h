#pragma once

#include "Host/Terminal/Terminal.h"

#include <string_view>

namespace veltry {

/// Writes lines to standard output. Where that is a terminal with fewer rows they go to the program that the variable
/// PAGER names, or to `less -FRX`, and this returns when the person has left it; "cat" and an empty PAGER mean none,
/// and so does `direct`.
/// Throws what Terminal::write() throws.
void writePaged(const Terminal& out, std::string_view lines, bool direct = false);

} // namespace veltry
