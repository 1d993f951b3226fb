#include "Platform/GPUFacts.h"

#include "Base/Text.h"
#include "Platform/Files.h"
#include "Platform/linux/GPUReaders.h"

#include <dlfcn.h>

namespace veltry {

template <typename Function>
bool NVML::find(const char* name, Function*& function) const
{
    function = reinterpret_cast<Function*>(::dlsym(library_, name));
    return function;
}

NVML::NVML(const char* library) : library_(::dlopen(library, RTLD_NOW | RTLD_LOCAL))
{
    if (!library_)
        return; // no such driver
    isConnected_ = find("nvmlInit_v2", init_) && find("nvmlShutdown", shutdown_) &&
                   find("nvmlDeviceGetCount_v2", count_) && find("nvmlDeviceGetHandleByIndex_v2", device_) &&
                   find("nvmlDeviceGetUtilizationRates", utilization_) && init_() == 0;
}

NVML::~NVML()
{
    if (isConnected_)
        shutdown_();
    if (library_)
        ::dlclose(library_);
}

std::vector<double> NVML::utilizations() const
{
    std::vector<double> percentages;
    unsigned count = 0;
    if (!isConnected_ || count_(&count) != 0)
        return percentages;
    for (unsigned index = 0; index < count; ++index) {
        Device* device = nullptr;
        Utilization utilization{};
        if (device_(index, &device) == 0 && utilization_(device, &utilization) == 0)
            percentages.push_back(utilization.gpu);
    }
    return percentages;
}

std::vector<double> drmUtilizations(const std::filesystem::path& folder)
{
    std::vector<double> percentages;
    std::error_code error; // no such folder: no GPUs
    // The folder holds cards, their connectors and their render nodes; only a card's device has the file.
    for (std::filesystem::directory_iterator entry(folder, error); entry != std::filesystem::directory_iterator();
         entry.increment(error)) {
        const std::string name = entry->path().filename().string();
        if (!name.starts_with("card") || name.find('-') != std::string::npos)
            continue;
        const auto contents = Files::readIfPossible(entry->path() / "device" / "gpu_busy_percent");
        if (const auto percent = contents ? text::integer(text::trimmed(*contents)) : std::nullopt)
            percentages.push_back(static_cast<double>(*percent));
    }
    return percentages;
}

namespace GPUFacts {

std::vector<double> utilizations()
{
    // Connecting takes tens of milliseconds, so it is done once. Never let go: at the end of the process the library's
    // own clean-up may come before ours.
    static const NVML* const nvml = new NVML;
    std::vector<double> percentages = nvml->utilizations();
    for (const double percent : drmUtilizations())
        percentages.push_back(percent);
    return percentages;
}

} // namespace GPUFacts

} // namespace veltry
