#include "Base/Text.h"
#include "Experiments/Spawn.h"
#include "Platform/Files.h"
#include "Platform/ProcessFacts.h"
#include "Platform/SystemError.h"
#include "Projects/ProjectStore.h"
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
        : place_(place), store_(place.folder / "store.sqlite")
    {
        node_ = {
            .id = UUID::random(),
            .projectID = store_.createProject("Bench", {place.folder}).id,
            .parentID = {},
            .slug = "baseline",
            .branch = "veltry/baseline",
            .title = "Baseline",
            .notes = {},
            .runCommand = command,
            .archived = false,
            .conversationID = {},
            .createdAt = Date::now()};
        store_.insertExperiment(node_);
    }

    Run add()
    {
        const UUID id = UUID::random();
        const Run run = store_.insertRun(id, node_, "0123", place_.folder / id.text());
        Files::createFolders(run.source());
        return run;
    }

    [[nodiscard]] pid_t supervise(const Run& run) const
    {
        return Spawn::start(
            {.executable = place_.tools,
             .arguments = {"supervise", "--db", store_.path().string(), "--run", run.id.text()},
             .environment = ProcessFacts::environment(),
             .directory = run.directory,
             .log = run.directory / "supervisor.log"});
    }

    [[nodiscard]] const ProjectStore& store() const { return store_; }

private:
    const Workplace& place_;
    ProjectStore store_;
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

pid_t start(const std::filesystem::path& executable, const std::vector<std::string>& arguments, const Workplace& place)
{
    return Spawn::start(
        {.executable = executable,
         .arguments = arguments,
         .environment = ProcessFacts::environment(),
         .directory = place.folder,
         .log = place.folder / "log"});
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
            return ChildProcess::start(
                {.executable = "/usr/bin/setsid",
                 .arguments = {"nohup", Spawn::loginShell().string(), "-l", "-c", begun.command()},
                 .environment = ProcessFacts::environment(),
                 .directory = folder,
                 .input = {},
                 .output = ChildProcess::Stream::appendTo(folder / "log"),
                 .error = ChildProcess::Stream::sameAsOutput()});
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
        const pid_t sleeper = start("/usr/bin/sleep", {"600"}, place);
        const double bytes = privateMemory(sleeper);
        ::kill(sleeper, SIGTERM);
        static_cast<void>(ChildProcess::wait(sleeper));
        return bytes;
    };
    return interleaved(3, ours, limit);
}

} // namespace veltry::bench
