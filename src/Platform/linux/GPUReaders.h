#pragma once

#include "Platform/GPUFacts.h"

#include <filesystem>
#include <vector>

namespace veltry {

/// NVIDIA's management library, which comes with the driver. Nothing of it is needed to build, and a machine without it
/// has no such GPUs.
class NVML {
public:
    /// Loads the library and connects it to the driver. Where that isn't possible there are no GPUs.
    explicit NVML(const char* library = "libnvidia-ml.so.1");
    NVML(const NVML&) = delete;
    NVML& operator=(const NVML&) = delete;
    ~NVML();

    /// In percent, of each GPU that tells it. May be called from any thread.
    [[nodiscard]] std::vector<double> utilizations() const;
    /// All that it can tell of its cards. What an older library doesn't know is left out.
    [[nodiscard]] GPUFacts::Cards cards() const;

private:
    struct Device;
    struct Utilization {
        unsigned gpu; ///< percent of the last sample period in which something ran
        unsigned memory;
    };
    struct Memory {
        unsigned long long total; ///< bytes
        unsigned long long free;
        unsigned long long used;
    };
    using Status = int; ///< 0 for success

    [[nodiscard]] GPUFacts::Card card(Device* device) const;

    template <typename Function>
    bool find(const char* name, Function*& function) const;

    void* library_;
    bool isConnected_ = false;
    Status (*init_)() = nullptr;
    Status (*shutdown_)() = nullptr;
    Status (*count_)(unsigned*) = nullptr;
    Status (*device_)(unsigned, Device**) = nullptr;
    Status (*utilization_)(Device*, Utilization*) = nullptr;
    Status (*name_)(Device*, char*, unsigned) = nullptr;
    Status (*memory_)(Device*, Memory*) = nullptr;
    Status (*computing_)(Device*, unsigned*, void*) = nullptr;
    Status (*driver_)(char*, unsigned) = nullptr;
    Status (*cuda_)(int*) = nullptr;
};

/// The cards that NVIDIA's driver lists in files, which name them and no more.
[[nodiscard]] std::vector<GPUFacts::Card> nvidiaFileCards(
    const std::filesystem::path& folder = "/proc/driver/nvidia/gpus");
/// The cards of AMD's driver.
[[nodiscard]] std::vector<GPUFacts::Card> amdCards(const std::filesystem::path& folder = "/sys/class/drm");

/// In percent, of each GPU whose kernel driver writes it to a file: AMD's do.
[[nodiscard]] std::vector<double> drmUtilizations(const std::filesystem::path& folder = "/sys/class/drm");

} // namespace veltry
