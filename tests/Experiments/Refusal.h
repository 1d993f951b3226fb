#pragma once

#include "Experiments/LabError.h"

#include <string>

namespace veltry::test {

/// The text form of the LabError that `work` throws; what else it threw, or that it threw nothing.
template <typename Work>
[[nodiscard]] std::string refusal(Work work)
{
    try {
        static_cast<void>(work());
    } catch (const LabError& error) {
        return error.description();
    } catch (const std::exception& error) {
        return "not a LabError: " + describe(error);
    }
    return "nothing was thrown";
}

} // namespace veltry::test
