#include "Host/Words/RunWords.h"

#include "Base/Numbers.h"
#include "Base/Text.h"
#include "Experiments/ResultValues.h"
#include "Host/Terminal/Times.h"
#include "Platform/Files.h"

#include <fmt/format.h>

namespace veltry::RunWords {

namespace {

constexpr std::size_t shownCommit = 12; // digits: git knows it by them even in a large repository
constexpr std::size_t shownResult = 65536;
constexpr std::int32_t signalBase = 128; // of the exit code where a signal ended it

std::string exitWords(const Run& run)
{
    if (const std::string_view lost = RunWords::withoutEnd(run); !lost.empty())
        return fmt::format(": {}", lost);
    if (!run.exitCode || *run.exitCode == 0)
        return "";
    if (*run.exitCode > signalBase)
        return fmt::format(", with exit code {} (signal {})", *run.exitCode, *run.exitCode - signalBase);
    return fmt::format(", with exit code {}", *run.exitCode);
}

} // namespace

std::string_view withoutEnd(const Run& run)
{
    if (run.status != Run::Status::failed || run.exitCode)
        return {};
    return run.pid ? "its supervisor was lost" : "it was never started";
}

std::string result(const Run& run)
{
    std::string text;
    for (const ResultValue& value : resultValues(run))
        text += fmt::format(
            "  {}  {}\n", text::oneLine(value.key),
            value.number() ? shownNumber(*value.number()) : text::oneLine(value.text()));
    if (run.result || !run.isFinished())
        return text;
    const std::optional<std::string> left = Files::readStart(run.resultFile(), shownResult);
    if (!left)
        return text;
    const bool hasNaN = left->contains("NaN") || left->contains("Infinity");
    text += fmt::format(
        "  It has no result: {} isn't one JSON object of 64 KiB or less.{}\n", run.resultFile().string(),
        hasNaN ? " JSON has no NaN and no Infinity: write null, or leave the key out." : "");
    return text;
}

std::string commit(const Run& run)
{
    return run.commit.substr(0, shownCommit);
}

double seconds(const Run& run, Date now)
{
    return run.endedAt.value_or(now).secondsSince2001 - run.createdAt.secondsSince2001;
}

std::string state(const Run& run, Date now)
{
    const std::string_view status = toWord(run.status);
    const std::string length = Times::length(seconds(run, now));
    switch (run.status) {
    case Run::Status::queued:
        return fmt::format("Run #{} is queued.", run.number);
    case Run::Status::running:
        return fmt::format("Run #{} runs, for {} now.", run.number, length);
    case Run::Status::succeeded:
    case Run::Status::failed:
        return fmt::format("Run #{} {} after {}{}.", run.number, status, length, exitWords(run));
    case Run::Status::cancelled:
        return fmt::format("Run #{} was cancelled after {}.", run.number, length);
    }
    return {};
}

} // namespace veltry::RunWords
