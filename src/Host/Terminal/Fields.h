#pragma once

#include "Host/Terminal/Terminal.h"

#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace veltry {

/// Names with a value each, one below the other. No value is cut: paths and ids are there to be copied.
class Fields {
public:
    /// A literal and its value, which is left out where it is empty.
    void add(std::string_view name, std::string_view value);

    /// The lines, each with its line feed.
    [[nodiscard]] std::string text(const Terminal& terminal) const;

private:
    std::vector<std::pair<std::string_view, std::string>> fields_;
};

} // namespace veltry
