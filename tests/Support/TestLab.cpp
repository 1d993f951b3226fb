#include "Support/TestLab.h"

#include "Platform/Files.h"
#include "Projects/Database.h"
#include "Support/Eventually.h"

#include <csignal>
#include <fstream>
#include <stdexcept>

namespace veltry::test {

TestLab::TestLab(Repository::Options options, const std::filesystem::path& database)
    : repository(options),
      store(std::make_shared<ProjectStore>(database.empty() ? folder_ / "veltry.sqlite" : database)),
      lab(store, store->createProject("P", {repository.path()}), runs(), toolsProgram())
{
    lab.adopt = [this](pid_t supervisor) { supervisors.push_back(supervisor); };
}

TestLab::~TestLab()
{
    const auto killRuns = [this] { // again and again, since a run that is starting has no pid yet
        for (const Run& run : store->unfinishedRuns())
            if (run.pid)
                ::kill(-*run.pid, SIGKILL);
    };
    for (const pid_t supervisor : supervisors)
        static_cast<void>(eventually([&] {
            killRuns();
            return ChildProcess::reapIfEnded(supervisor);
        }));
}

std::vector<std::string> TestLab::serverArguments() const
{
    return {"mcp", "--db", database().string(), "--project", lab.project.id.text(), "--runs", runs().string()};
}

McpProcess TestLab::serve(const std::vector<std::string>& more, const ChildProcess::Environment& environment) const
{
    std::vector<std::string> arguments = serverArguments();
    arguments.insert(arguments.end(), more.begin(), more.end());
    return McpProcess(arguments, environment);
}

Experiment TestLab::baseline(const std::string& command, const std::string& title) const
{
    return lab.create({.title = title, .runCommand = command});
}

Experiment TestLab::child(const Experiment& parent, const std::string& title) const
{
    return lab.create({.title = title, .parent = parent.id});
}

void TestLab::write(const Experiment& node, std::string_view name, std::string_view contents) const
{
    std::ofstream(lab.worktree(node) / name, std::ios::binary) << contents;
}

Run TestLab::finished(const UUID& id) const
{
    if (!eventually([&] { return store->run(id).value().isFinished(); }))
        throw std::runtime_error("the run doesn't end");
    return store->run(id).value();
}

Run TestLab::insertFinished(
    const Experiment& node, Run::Status status, std::optional<std::int32_t> exitCode,
    const std::optional<std::string>& result) const
{
    const UUID id = UUID::random();
    store->insertRun(id, node, "commit", runs() / id.text());
    store->finishRun(id, status, exitCode, result);
    return store->run(id).value();
}

void TestLab::backdate(const UUID& run, double seconds) const
{
    Database file(database());
    file.write([&](Connection& connection) {
        connection.execute("UPDATE run SET created_at = created_at - ? WHERE id = ?", seconds, run.text());
    });
}

} // namespace veltry::test
