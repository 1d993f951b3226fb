#include "Experiments/Lab.h"
#include "History.h"
#include "LineProcess.h"
#include "Platform/Files.h"
#include "Programs.h"
#include "Repository.h"
#include "Rows.h"

#include <fmt/format.h>

#include <sched.h>

#include <stdexcept>
#include <thread>

namespace veltry::bench {

namespace {

constexpr const char* sqlite = "/usr/bin/sqlite3";
constexpr std::string_view initialize =
    R"({"jsonrpc":"2.0","id":0,"method":"initialize","params":{"protocolVersion":"2025-06-18","capabilities":{},)"
    R"("clientInfo":{"name":"bench","version":"1"}}})"
    "\n";
constexpr std::string_view pingLine = R"({"jsonrpc":"2.0","id":1,"method":"ping"})"
                                      "\n";

/// A node of a real project, served by a real server.
class ServedNode {
public:
    ServedNode(const Lab& lab, const std::string& title)
        : lab_(lab),
          node_(lab.create({.title = title, .notes = {}, .parent = {}, .runCommand = "true", .conversation = {}}))
    {
    }

    [[nodiscard]] const Experiment& node() const { return node_; }

    /// Edits a file in the node's worktree.
    void edit() { Files::writeAtomically(moduleFile(lab_.worktree(node_), 0), fmt::format("VALUE = {}\n", ++edits_)); }

    /// The commands that run_experiment has to run for this node, for a shell.
    [[nodiscard]] std::string script(const std::filesystem::path& target) const
    {
        return fmt::format(
            R"(set -e
tree='{0}' repository='{1}' target='{2}'
git -C "$tree" status --porcelain >/dev/null
git -C "$tree" add --all
git -C "$tree" config user.email >/dev/null
git -C "$tree" commit --quiet --no-verify -m '{3}: run 1'
commit=$(git -C "$repository" rev-parse --verify --quiet 'refs/heads/{4}^{{commit}}')
mkdir -p "$target"
git -C "$repository" archive --format=tar "$commit" | tar -x -C "$target"
)",
            lab_.worktree(node_).string(), lab_.project.folders.front().string(), target.string(), node_.title,
            node_.branch);
    }

private:
    const Lab& lab_;
    Experiment node_;
    int edits_ = 0;
};

/// Keeps this process and the children that it starts on one processor: waking an idle one, most of all a virtual one,
/// takes longer than all that is compared.
class OnOneProcessor {
public:
    OnOneProcessor()
    {
        ::sched_getaffinity(0, sizeof before_, &before_);
        cpu_set_t one;
        CPU_ZERO(&one);
        for (std::size_t cpu = 0; cpu < CPU_SETSIZE && CPU_COUNT(&one) == 0; ++cpu)
            if (CPU_ISSET(cpu, &before_))
                CPU_SET(cpu, &one);
        ::sched_setaffinity(0, sizeof one, &one);
    }

    OnOneProcessor(const OnOneProcessor&) = delete;
    OnOneProcessor& operator=(const OnOneProcessor&) = delete;

    ~OnOneProcessor() { ::sched_setaffinity(0, sizeof before_, &before_); }

private:
    cpu_set_t before_{};
};

void waitForRuns(const ProjectStore& store)
{
    while (!store.unfinishedRuns().empty())
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    std::this_thread::sleep_for(std::chrono::milliseconds(20)); // the supervisor is about to end
}

} // namespace

Measured serverStart(const Workplace& place)
{
    const History history(place.folder, "store", History::small);
    const std::string file = history.store().path().string();
    const auto ours = [&] {
        std::optional<LineProcess> server;
        return secondsOf([&] {
            server.emplace(place.tools, serverArguments(history.lab()));
            server->send(initialize);
            static_cast<void>(server->readLine());
        });
    };
    const auto limit = [&] {
        std::optional<LineProcess> shell;
        return secondsOf([&] {
            shell.emplace(sqlite, std::vector<std::string>{file, "SELECT * FROM project"});
            static_cast<void>(shell->readLine());
        });
    };
    return interleaved(40, ours, limit, least);
}

Measured ping(const Workplace& place)
{
    const History history(place.folder, "store", History::small);
    const OnOneProcessor pinned;
    LineProcess server(place.tools, serverArguments(history.lab()));
    LineProcess cat("/usr/bin/cat", {});
    const auto timed = [](LineProcess& process) {
        return [&process] {
            return medianSecondsOf(500, [&] {
                process.send(pingLine);
                static_cast<void>(process.readLine());
            });
        };
    };
    return interleaved(25, timed(server), timed(cat));
}

Measured runExperiment(const Workplace& place)
{
    const std::filesystem::path project = place.folder / "project";
    makeRepository(project, 200, 60); // of a middling size
    const Lab lab = makeLab(place.folder, project, place.tools);
    ServedNode served(lab, "Served");
    ServedNode scripted(lab, "Scripted");
    LineProcess server(place.tools, serverArguments(lab));
    int count = 0;

    const auto ours = [&] {
        served.edit();
        const std::string arguments = fmt::format(R"({{"experiment_id":"{}"}})", served.node().id.text());
        const double seconds = secondsOf([&] { server.call("run_experiment", arguments); });
        waitForRuns(*lab.store);
        return seconds;
    };
    const auto limit = [&] {
        scripted.edit();
        const std::string script = scripted.script(place.folder / "scripted" / std::to_string(++count));
        return secondsOf([&] { runScript(script); });
    };
    return interleaved(25, ours, limit);
}

Measured experimentTree(const Workplace& place)
{
    const History history(place.folder, "store", History::large);
    LineProcess server(place.tools, serverArguments(history.lab()));
    const std::string file = history.store().path().string();
    const std::string project = history.project().text();
    const std::string rows = fmt::format(
        "SELECT * FROM experiment WHERE project_id = '{0}' ORDER BY created_at, rowid;"
        "SELECT * FROM run WHERE project_id = '{0}' ORDER BY number;",
        project);
    const auto ours = [&] {
        return secondsOf([&] {
            server.send(
                R"({"jsonrpc":"2.0","id":1,"method":"tools/call","params":{"name":"experiment_tree","arguments":{}}})"
                "\n");
            if (server.readLine().size() < static_cast<std::size_t>(History::large.runs))
                throw std::runtime_error("the tree is not whole");
        });
    };
    const auto limit = [&] {
        return secondsOf([&] {
            LineProcess shell(sqlite, {file, rows});
            shell.skipAll();
        });
    };
    return interleaved(7, ours, limit);
}

} // namespace veltry::bench
