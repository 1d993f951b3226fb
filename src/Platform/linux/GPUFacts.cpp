#include "Platform/GPUFacts.h"

#include "Base/Text.h"
#include "Platform/Files.h"
#include "Platform/linux/GPUReaders.h"

#include <fmt/format.h>

#include <dlfcn.h>

#include <algorithm>
#include <array>
#include <future>
#include <thread>

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
    // Connected last, so that a library which lacks one of these needs no shutdown.
    isConnected_ = find("nvmlInit_v2", init_) && find("nvmlShutdown", shutdown_) &&
                   find("nvmlDeviceGetCount_v2", count_) && find("nvmlDeviceGetHandleByIndex_v2", device_) &&
                   find("nvmlDeviceGetUtilizationRates", utilization_) && init_() == 0;
    find("nvmlDeviceGetName", name_);
    find("nvmlDeviceGetMemoryInfo", memory_);
    // The versions differ in the record of a process, and none is asked for: only their number.
    static_cast<void>(
        find("nvmlDeviceGetComputeRunningProcesses_v3", computing_) ||
        find("nvmlDeviceGetComputeRunningProcesses_v2", computing_) ||
        find("nvmlDeviceGetComputeRunningProcesses", computing_));
    find("nvmlSystemGetDriverVersion", driver_);
    find("nvmlSystemGetCudaDriverVersion_v2", cuda_);
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

GPUFacts::Cards NVML::cards() const
{
    GPUFacts::Cards found;
    unsigned count = 0;
    if (!isConnected_ || count_(&count) != 0)
        return found;
    for (unsigned index = 0; index < count; ++index)
        if (Device* device = nullptr; device_(index, &device) == 0)
            found.cards.push_back(card(device));
    // A byte of the zeroed text is kept back, so that it has an end whatever the driver writes.
    if (std::array<char, 96> text{}; driver_ && driver_(text.data(), text.size() - 1) == 0)
        found.driver = text.data();
    if (int version = 0; cuda_ && cuda_(&version) == 0) // 12040 is 12.4
        found.cuda = fmt::format("{}.{}", version / 1000, version % 1000 / 10);
    return found;
}

GPUFacts::Card NVML::card(Device* device) const
{
    GPUFacts::Card card;
    if (std::array<char, 96> text{}; name_ && name_(device, text.data(), text.size() - 1) == 0)
        card.name = text.data();
    if (Memory memory{}; memory_ && memory_(device, &memory) == 0)
        card.memory = memory.total;
    constexpr Status tooSmall = 7; // with room for no process: there are some
    unsigned processes = 0;
    if (const Status status = computing_ ? computing_(device, &processes, nullptr) : -1; status == 0)
        card.isInUse = processes > 0;
    else if (status == tooSmall)
        card.isInUse = true;
    return card;
}

namespace {

std::optional<std::string> line(const std::filesystem::path& file)
{
    const std::optional<std::string> contents = Files::readIfPossible(file);
    if (!contents)
        return std::nullopt;
    std::string trimmed(text::trimmed(*contents));
    return trimmed.empty() ? std::nullopt : std::optional(std::move(trimmed));
}

/// The entries of a folder by name; none where it isn't there.
std::vector<std::filesystem::path> entries(const std::filesystem::path& folder)
{
    std::vector<std::filesystem::path> paths;
    std::error_code error;
    for (std::filesystem::directory_iterator entry(folder, error); entry != std::filesystem::directory_iterator();
         entry.increment(error))
        paths.push_back(entry->path());
    std::ranges::sort(paths);
    return paths;
}

/// The folder holds cards, their connectors and their render nodes.
bool isCard(const std::filesystem::path& entry)
{
    const std::string name = entry.filename().string();
    return name.starts_with("card") && name.find('-') == std::string::npos;
}

} // namespace

std::vector<GPUFacts::Card> nvidiaFileCards(const std::filesystem::path& folder)
{
    std::vector<GPUFacts::Card> cards;
    constexpr std::string_view label = "Model:";
    for (const std::filesystem::path& entry : entries(folder)) {
        const std::string contents = Files::readIfPossible(entry / "information").value_or("");
        for (std::string_view each : text::split(contents, '\n'))
            if (each.starts_with(label))
                cards.push_back({.name = std::string(text::trimmed(each.substr(label.size())))});
    }
    return cards;
}

std::vector<GPUFacts::Card> amdCards(const std::filesystem::path& folder)
{
    std::vector<GPUFacts::Card> cards;
    for (const std::filesystem::path& entry : entries(folder)) {
        const std::filesystem::path device = entry / "device";
        // Only AMD's driver writes how much memory a card has; a card without any shares the computer's.
        const std::optional<std::string> memory = isCard(entry) ? line(device / "mem_info_vram_total") : std::nullopt;
        const std::optional<std::int64_t> bytes = memory ? text::integer(*memory) : std::nullopt;
        if (bytes && *bytes > 0)
            cards.push_back(
                {.name = line(device / "product_name").value_or("AMD GPU"),
                 .memory = static_cast<std::uint64_t>(*bytes)});
    }
    return cards;
}

std::vector<double> drmUtilizations(const std::filesystem::path& folder)
{
    std::vector<double> percentages;
    for (const std::filesystem::path& entry : entries(folder)) {
        const std::optional<std::string> busy =
            isCard(entry) ? line(entry / "device" / "gpu_busy_percent") : std::nullopt;
        if (const auto percent = busy ? text::integer(*busy) : std::nullopt)
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

std::optional<Cards> cards(std::chrono::milliseconds patience)
{
    // A driver that hangs holds up a thread of its own. The connection is let go again: it takes tens of megabytes.
    std::promise<Cards> promise;
    std::future<Cards> answer = promise.get_future();
    std::thread([promise = std::move(promise)]() mutable { promise.set_value(NVML().cards()); }).detach();
    if (answer.wait_for(patience) != std::future_status::ready)
        return std::nullopt;
    Cards found = answer.get();
    // The kernel's part of the driver names the cards also where its library isn't installed.
    if (found.cards.empty())
        found.cards = nvidiaFileCards();
    std::ranges::move(amdCards(), std::back_inserter(found.cards));
    return found;
}

} // namespace GPUFacts

} // namespace veltry
