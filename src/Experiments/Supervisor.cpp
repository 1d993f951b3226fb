#include "Experiments/Supervisor.h"

#include "Base/JSONValue.h"
#include "Base/Text.h"
#include "Experiments/RunLog/Stamper.h"
#include "Experiments/Spawn.h"
#include "Platform/FileLock.h"
#include "Platform/Files.h"
#include "Platform/ProcessFacts.h"

#include <fmt/format.h>

#include <chrono>

namespace veltry::Supervisor {

namespace {

std::filesystem::path lockFile(const Run& run)
{
    return run.directory / "supervisor.lock";
}

ChildProcess::Environment environment(const Run& run)
{
    ChildProcess::Environment variables = ProcessFacts::environment();
    variables[resultVariable] = run.resultFile().string();
    variables["HARROWICK_TELEMETRY_PATH"] = run.telemetryFile().string();
    variables["HARROWICK_RUN"] = std::to_string(run.number);
    return variables;
}

void startIfPossible(RunLog::Stamper& stamper)
{
    try {
        stamper.start();
    } catch (const std::exception&) {
        return; // the run goes on and has no line times
    }
}

ProcessID startShell(const Run& run)
{
    return Spawn::start(
        {.executable = Spawn::loginShell(),
         .arguments = {"-l", "-c", run.command},
         .environment = environment(run),
         .directory = run.source(),
         .log = run.log(),
         .group = true});
}

Run::Status finalStatus(bool cancelRequested, std::int32_t exitNumber)
{
    if (cancelRequested)
        return Run::Status::cancelled;
    return exitNumber == 0 ? Run::Status::succeeded : Run::Status::failed;
}

} // namespace

void supervise(const UUID& id, ProjectStore& store)
{
    std::optional<Run> run = store.run(id);
    if (!run || run->status != Run::Status::queued)
        return;
    const std::optional<FileLock> lock = FileLock::tryTake(lockFile(*run));
    if (!lock)
        return;
    // Another supervisor may have carried the run to its end between the look at the row and the lock.
    run = store.run(id);
    if (!run || run->status != Run::Status::queued)
        return;

    // However this scope is left, the stamper stops first, with its last look at the log, and then the lock is free.
    RunLog::Stamper stamper(run->log());
    startIfPossible(stamper);
    ProcessID shell = -1;
    try {
        shell = startShell(*run);
    } catch (const Spawn::Failure& failure) {
        note(fmt::format("Veltry could not start the run: {}", failure.description()), run->log());
        store.finishRun(id, Run::Status::failed, std::nullopt, std::nullopt);
        return;
    }
    store.markRunning(
        id, shell); // if it fails nobody waits for the shell, and the row is failed when the lock is missed
    const std::int32_t exitNumber = Spawn::wait(shell);
    // Before the row ends, since whoever waits for the end asks for the result at once.
    const std::optional<std::string> result = readResult(*run);
    // Somebody may have cancelled the run in the meantime, or removed its project and with it the row.
    const Run fresh = store.run(id).value_or(*run);
    store.finishRun(id, finalStatus(fresh.cancelRequested, exitNumber), exitNumber, result);
}

bool isAlive(const Run& run) noexcept
{
    return FileLock::isHeld(lockFile(run));
}

std::optional<double> begunAt(const Run& run) noexcept
{
    std::error_code missing; // nobody ever writes to it
    const auto made = std::filesystem::last_write_time(lockFile(run), missing);
    if (missing)
        return std::nullopt;
    return std::chrono::duration<double>(std::chrono::file_clock::to_sys(made).time_since_epoch()).count();
}

std::optional<std::string> readResult(const Run& run)
{
    // One byte more than allowed shows that the file is too long, whatever its size.
    const std::optional<std::string> bytes = Files::readStart(run.resultFile(), resultLimit + 1);
    if (!bytes)
        return std::nullopt;
    if (bytes->size() <= resultLimit) {
        const std::optional<JSONValue> value = JSONValue::parseIfValid(*bytes);
        if (value && value->object())
            return std::string(text::trimmed(text::repaired(*bytes)));
    }
    note(
        fmt::format(
            "Veltry: {} is not one JSON object of 64 KiB or less, so the run has no result.",
            run.resultFile().filename().string()),
        run.log());
    return std::nullopt;
}

void note(std::string_view line, const std::filesystem::path& log) noexcept
{
    try {
        if (const FileDescriptor file = Files::tryOpen(log, Files::forWriting))
            // The run's last line may have no line feed.
            Files::writeAll(file, fmt::format("\n{}\n", line), log.string());
        else
            Files::writeAtomically(log, fmt::format("{}\n", line));
    } catch (const std::exception&) {
        return; // the log is for the reader's comfort; the row tells how the run ended
    }
}

} // namespace veltry::Supervisor
