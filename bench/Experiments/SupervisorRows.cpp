#include "Base/Text.h"
#include "Experiments/Spawn.h"
#include "Platform/Files.h"
#include "Platform/ProcessFacts.h"
#include "Platform/SystemError.h"
#include "Programs.h"
#include "Rows.h"

#include <fmt/format.h>

#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <csignal>
#include <stdexcept>
#include <thread>

namespace veltry::bench {

namespace {

/// A pipe with a name, by which a command says that it has begun.
class Signal {
public:
    explicit Signal(std::filesystem::path path) : path_(std::move(path))
    {
        if (::mkfifo(path_.c_str(), 0600) != 0)
            throw SystemError("could not make a pipe");
        file_.reset(::open(path_.c_str(), O_RDWR | O_NONBLOCK | O_CLOEXEC)); // with a writer of its own it has no end
    }

    /// A shell's command that gives the signal without a process of its own.
    [[nodiscard]] std::string command() const { return fmt::format("echo >'{}'", path_.string()); }

    /// Blocks until it was given.
    void wait() const
    {
        pollfd polled{.fd = file_.get(), .events = POLLIN, .revents = 0};
        if (::poll(&polled, 1, 30'000) != 1)
            throw std::runtime_error("the command did not begin");
        std::array<char, 16> ignored{};
        static_cast<void>(!::read(file_.get(), ignored.data(), ignored.size()));
    }

private:
    std::filesystem::path path_;
    FileDescriptor file_;
};

/// A store with runs that supervisors can carry out, whatever else a launch does before.
class QueuedRuns {
public:
    QueuedRuns(const Workplace& place, const std::string& command)
        : lab_(makeLab(place.folder, place.folder, place.tools))
    {
        node_ = {
            .id = UUID::random(),
            .projectID = lab_.project.id,
            .parentID = {},
            .slug = "baseline",
            .branch = "veltry/baseline",
            .title = "Baseline",
            .notes = {},
            .runCommand = command,
            .archived = false,
            .conversationID = {},
            .createdAt = Date::now()};
        lab_.store->insertExperiment(node_);
    }

    Run add()
    {
        const UUID id = UUID::random();
        const Run run = lab_.store->insertRun(id, node_, "0123", lab_.runsFolder / id.text());
        Files::createFolders(run.source());
        return run;
    }

    [[nodiscard]] pid_t supervise(const Run& run) const
    {
        return Spawn::start(
            {.executable = lab_.tools,
             .arguments = {"supervise", "--db", lab_.store->path().string(), "--run", run.id.text()},
             .environment = ProcessFacts::environment(),
             .directory = run.directory,
             .log = run.directory / "supervisor.log"});
    }

    [[nodiscard]] const ProjectStore& store() const { return *lab_.store; }

private:
    Lab lab_;
    Experiment node_;
};

/// Bytes of memory that no other process shares, once they stay the same.
double privateMemory(pid_t process)
{
    double last = -1;
    for (double now = 0; now != last || now == 0; std::this_thread::sleep_for(std::chrono::milliseconds(100))) {
        last = now;
        now = 0;
        const std::string text = Files::read(fmt::format("/proc/{}/smaps_rollup", process));
        for (const std::string_view line : text::split(text, '\n'))
            if (line.starts_with("Private_Clean:") || line.starts_with("Private_Dirty:")) {
                const std::string_view number = text::trimmed(line.substr(line.find(':') + 1));
                now += 1024.0 * static_cast<double>(text::integer(number.substr(0, number.find(' '))).value_or(0));
            }
    }
    return last;
}

} // namespace

Measured supervisorStart(const Workplace& place)
{
    const Signal begun(place.folder / "begun");
    QueuedRuns runs(place, begun.command());
    const auto timed = [&](auto startChild) {
        pid_t child = -1;
        const double seconds = secondsOf([&] {
            child = startChild();
            begun.wait();
        });
        if (ChildProcess::wait(child) != 0)
            throw std::runtime_error("the command failed");
        return seconds;
    };
    const auto ours = [&] {
        const Run run = runs.add();
        return timed([&] { return runs.supervise(run); });
    };
    int count = 0;
    const auto limit = [&] {
        const std::filesystem::path folder = place.folder / std::to_string(++count);
        Files::createFolders(folder);
        // A group of its own would make setsid fork first.
        return timed([&] {
            ChildProcess::Command command =
                program("/usr/bin/setsid", {"nohup", Spawn::loginShell().string(), "-l", "-c", begun.command()});
            command.directory = folder;
            command.output = ChildProcess::Stream::appendTo(folder / "log");
            command.error = ChildProcess::Stream::sameAsOutput();
            return ChildProcess::start(command);
        });
    };
    return interleaved(60, ours, limit, least);
}

Measured supervisorMemory(const Workplace& place)
{
    const Signal begun(place.folder / "begun");
    QueuedRuns runs(place, begun.command() + "; exec sleep 600");
    const auto ours = [&] {
        const Run run = runs.add();
        const pid_t supervisor = runs.supervise(run);
        begun.wait();
        const double bytes = privateMemory(supervisor);
        if (const std::optional<Run> now = runs.store().run(run.id); now && now->pid)
            ChildProcess::terminateGroup(*now->pid);
        static_cast<void>(ChildProcess::wait(supervisor));
        return bytes;
    };
    const auto limit = [&] {
        const pid_t sleeper = ChildProcess::start(program("/usr/bin/sleep", {"600"}));
        const double bytes = privateMemory(sleeper);
        ::kill(sleeper, SIGTERM);
        static_cast<void>(ChildProcess::wait(sleeper));
        return bytes;
    };
    return interleaved(3, ours, limit);
}

} // namespace veltry::bench
