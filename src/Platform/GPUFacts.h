#pragma once

#include <vector>

/// The machine's GPUs, looked at anew at each call. May be called from any thread.
namespace veltry::GPUFacts {

/// How busy each GPU that tells it has been of late, in percent, in no order. A machine without any gives none.
[[nodiscard]] std::vector<double> utilizations();

} // namespace veltry::GPUFacts
