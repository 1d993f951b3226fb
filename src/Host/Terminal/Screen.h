#pragma once

#include "Host/Terminal/Interruption.h"
#include "Host/Terminal/Terminal.h"

#include <optional>
#include <string_view>

namespace veltry {

/// Shows one view after another in the same place, for commands that watch. On a terminal it works on the second
/// screen, so that what stood there before comes back at the end, also after Ctrl-C. Anywhere else each view follows
/// the one before, after an empty line.
class Screen {
public:
    explicit Screen(const Terminal& terminal);

    /// Lines, each with its line feed, no wider than the terminal. Those that it has no rows for are
    /// counted.
    void show(std::string_view view);

    enum class Wish { nothing, scroll, quit };
    /// What keys ask for, as TypedKeys gives them: the arrows and j, k move by a line, the page keys, the space bar and
    /// b by a screen, g and G to the ends, from the next show() on; q quits.
    [[nodiscard]] Wish typed(std::string_view keys);

private:
    const Terminal* terminal_;
    bool isFirst_ = true;
    std::size_t top_ = 0; // the first line that is shown
    std::optional<Interruption::Undo> undo_;
};

} // namespace veltry
