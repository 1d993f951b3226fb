#include "Experiments/Computer.h"

#include "Base/Numbers.h"
#include "Base/Text.h"
#include "Experiments/Spawn.h"
#include "Platform/FileSystemFacts.h"
#include "Platform/MachineFacts.h"
#include "Platform/ProcessFacts.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <vector>

namespace veltry {

namespace {

using GPUFacts::Card;

constexpr std::size_t kindsInFull = 2;

/// "80 GB", "1.5 GB": binary gigabytes, as the makers of cards and memory count.
std::string gigabytes(std::uint64_t bytes)
{
    const double value = static_cast<double>(bytes) / static_cast<double>(std::uint64_t{1} << 30);
    // With two digits, 100 would be written as 1e+02.
    return value < 9.95 ? fmt::format("{:.2g} GB", value) : fmt::format("{:.0f} GB", value);
}

std::string cut(std::string_view name, std::size_t longest)
{
    const std::string line = text::oneLine(name);
    const std::string_view first = text::firstCharacters(line, longest);
    return first.size() == line.size() ? line : std::string(first) + "…";
}

/// Cards of one name and size.
struct Kind {
    const Card* card;
    std::size_t count;
};

std::vector<Kind> kinds(const std::vector<Card>& cards)
{
    std::vector<Kind> kinds;
    for (const Card& card : cards) {
        const auto known = std::ranges::find_if(
            kinds, [&](const Kind& kind) { return kind.card->name == card.name && kind.card->memory == card.memory; });
        if (known == kinds.end())
            kinds.push_back({&card, 1});
        else
            ++known->count;
    }
    return kinds;
}

std::string described(const Kind& kind, std::size_t longest)
{
    std::string text = kind.count > 1 ? fmt::format("{} × ", kind.count) : "";
    text += cut(kind.card->name.empty() ? "GPU" : kind.card->name, longest);
    if (kind.card->memory > 0)
        text += fmt::format(", {}{}", gigabytes(kind.card->memory), kind.count > 1 ? " each" : "");
    return text;
}

/// How PyTorch names that many cards. It numbers by speed where they differ, so that no name is told then.
std::string deviceNames(std::size_t count)
{
    if (count == 1)
        return "PyTorch calls it `cuda:0`";
    if (count == 2)
        return "PyTorch calls them `cuda:0` and `cuda:1`";
    return fmt::format("PyTorch calls them `cuda:0` to `cuda:{}`", count - 1);
}

std::string usage(const std::vector<Card>& cards)
{
    // A count that leaves out the cards whose driver doesn't tell would be taken for the whole.
    if (!std::ranges::all_of(cards, [](const Card& card) { return card.isInUse.has_value(); }))
        return "";
    const auto busy = std::ranges::count_if(cards, [](const Card& card) { return *card.isInUse; });
    if (cards.size() == 1)
        return busy == 1 ? " It is in use." : " It is free.";
    return busy == 0 ? " None is in use." : fmt::format(" {} in use.", counted(busy, "is", "are"));
}

std::string gpuLine(const GPUFacts::Cards& found, std::string_view visible, std::size_t longest)
{
    if (found.cards.empty())
        return "- GPU: None found. Train on the processor.\n";
    const std::vector<Kind> all = kinds(found.cards);
    std::string text = "- GPU: ";
    std::size_t told = 0;
    for (std::size_t index = 0; index < std::min(all.size(), kindsInFull); ++index) {
        text += (index > 0 ? "; " : "") + described(all[index], longest);
        told += all[index].count;
    }
    if (told < found.cards.size())
        text += fmt::format("; {} more", found.cards.size() - told);
    if (!found.driver.empty())
        text += ", driver " + cut(found.driver, longest);
    if (!found.cuda.empty())
        text += ", CUDA " + found.cuda;
    if (!visible.empty())
        text += fmt::format("; CUDA_VISIBLE_DEVICES is {}", cut(visible, longest));
    else if (all.size() == 1)
        text += "; " + deviceNames(found.cards.size());
    return text + "." + usage(found.cards) + "\n";
}

std::string processorLine(const Computer& computer, std::size_t longest)
{
    std::string text = "- ";
    if (computer.model)
        text += fmt::format("Computer: {}; ", cut(*computer.model, longest));
    text += "CPU: ";
    if (computer.chip)
        text += cut(*computer.chip, longest) + ", ";
    text += fmt::format("{} cores, {} threads", computer.cores, computer.threads);
    if (computer.usableThreads < static_cast<double>(computer.threads))
        text += fmt::format(" (this process may use {:.2g} of them)", computer.usableThreads);
    return text + "\n";
}

std::string memoryLine(const Computer& computer)
{
    std::string text = fmt::format("- Memory: {}", gigabytes(computer.memory));
    if (computer.availableMemory)
        text += fmt::format(", {} free", gigabytes(*computer.availableMemory));
    text += ", shared with everything else running here";
    if (computer.memoryLimit)
        text += fmt::format(" (this process may use {})", gigabytes(*computer.memoryLimit));
    return text + "\n";
}

std::string runsLine(const Computer& computer, std::size_t longest)
{
    std::string text = "- Runs: ";
    text +=
        computer.maxRuns > 0 ? fmt::format("at most {} at once.", computer.maxRuns) : "as many at once as you start.";
    text += fmt::format(" They start in a login {}", cut(computer.shell.filename().string(), longest));
    // What another shell finds says nothing about this one.
    if (!computer.python || computer.python->shell != computer.shell)
        return text + ".";
    if (!computer.python->program)
        return text + "; there is no `python3` in it.";
    const std::string program = computer.python->program->string();
    if (program.size() > 2 * longest)
        // Half a path is none.
        return text + ".";
    text += fmt::format("; `python3` there is {}", text::oneLine(program));
    if (!computer.python->version.empty())
        text += fmt::format(" ({})", cut(computer.python->version, longest));
    return text + ".";
}

} // namespace

Computer Computer::current(const std::filesystem::path& runs, std::int64_t maxRuns, std::optional<LoginPython> python)
{
    const MachineFacts::CoreCounts cores = MachineFacts::cores();
    const auto disk = FileSystemFacts::of(runs);
    std::string system = fmt::format("{}, {}", MachineFacts::kernelName(), MachineFacts::architecture());
    if (const std::optional<std::string> name = MachineFacts::systemName())
        system = *name + ", " + system;
    return {
        .system = std::move(system),
        .model = MachineFacts::productName(),
        .chip = MachineFacts::processorName(),
        .cores = cores.performance + cores.efficiency,
        .threads = MachineFacts::threads(),
        .usableThreads = MachineFacts::usableThreads(),
        .gpus = GPUFacts::cards(),
        .visibleGPUs = ProcessFacts::variable("CUDA_VISIBLE_DEVICES").value_or(""),
        .memory = MachineFacts::memory(),
        .availableMemory = MachineFacts::availableMemory(),
        .memoryLimit = MachineFacts::memoryLimit(),
        .freeDisk = disk ? std::optional(disk->freeBytes) : std::nullopt,
        .maxRuns = maxRuns,
        .shell = Spawn::loginShell(),
        .python = std::move(python),
    };
}

std::string Computer::description() const
{
    // Names come from drivers, firmware and people, so that their lengths are bounded by what all together may take.
    std::string text;
    for (const std::size_t longest : std::array<std::size_t, 4>{80, 40, 24, 10}) {
        text = "This computer (where these instructions say \"Mac\", this one is meant)\n";
        text += fmt::format("- System: {}\n", cut(system, 2 * longest));
        text += processorLine(*this, longest);
        if (gpus)
            text += gpuLine(*gpus, visibleGPUs, longest);
        text += memoryLine(*this);
        if (freeDisk) // disks are counted in decimal gigabytes
            text +=
                fmt::format("- Disk: {:.0f} GB free where runs are written\n", static_cast<double>(*freeDisk) / 1e9);
        text += runsLine(*this, longest);
        if (text.size() <= longestDescription)
            break;
    }
    return text;
}

} // namespace veltry
