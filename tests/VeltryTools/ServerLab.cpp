#include "ServerLab.h"

#include "Experiments/Supervisor.h"
#include "Platform/Files.h"
#include "Support/Eventually.h"
#include "Support/Stress.h"

#include <fmt/format.h>

#include <algorithm>
#include <charconv>
#include <fstream>
#include <iterator>
#include <stdexcept>

namespace veltry::test {

ServerLab::~ServerLab()
{
    letGo();
    static_cast<void>(allEnded());
}

McpProcess ServerLab::server(const std::string& runsFolder, const std::vector<std::string>& more) const
{
    std::vector<std::string> arguments{"mcp",
                                       "--db",
                                       database().string(),
                                       "--project",
                                       lab.project.id.text(),
                                       "--runs",
                                       (*this / runsFolder).string()};
    arguments.insert(arguments.end(), more.begin(), more.end());
    return McpProcess(arguments);
}

std::string ServerLab::holding() const
{
    return fmt::format("while [ -e {} ]; do sleep 0.05; done", (*this / "hold").string());
}

void ServerLab::hold() const
{
    Files::writeAtomically(*this / "hold", "");
}

void ServerLab::letGo() const
{
    Files::remove(*this / "hold");
}

bool ServerLab::allEnded() const
{
    return eventually([&] {
        return std::ranges::all_of(
            store->runs(lab.project.id), [](const Run& run) { return run.isFinished() && !Supervisor::isAlive(run); });
    });
}

JSONValue naming(const Experiment& node)
{
    return JSONValue::object({{"experiment_id", node.id.text()}});
}

bool isError(const JSONValue& answer)
{
    const JSONValue* result = answer.find("result");
    const JSONValue* flag = result ? result->find("isError") : nullptr;
    return !flag || *flag != JSONValue(false);
}

UUID startedRun(const std::string& text)
{
    const std::size_t place = text.find(" started (");
    const auto id = place == std::string::npos ? std::nullopt : UUID::parse(text.substr(place + 10, 36));
    if (!id)
        throw std::runtime_error("no run was started: " + text);
    return *id;
}

namespace processes {

namespace {

/// Calls `body` with the number of each process.
template <typename Body>
void forEach(Body body)
{
    for (const auto& entry : std::filesystem::directory_iterator("/proc")) {
        const std::string name = entry.path().filename();
        pid_t pid = 0;
        if (std::from_chars(name.data(), name.data() + name.size(), pid).ptr == name.data() + name.size())
            body(pid);
    }
}

/// A file of a process; empty if it has just gone.
std::string readFile(pid_t process, const char* name)
{
    return Files::readIfPossible(fmt::format("/proc/{}/{}", process, name)).value_or("");
}

} // namespace

std::vector<Child> childrenOf(pid_t parent)
{
    std::vector<Child> children;
    forEach([&](pid_t pid) {
        const std::string status = readFile(pid, "stat"); // "7 (name) S 1 ...", where the name may hold anything
        const std::size_t place = status.rfind(") ");
        if (place != std::string::npos && std::stoi(status.substr(place + 4)) == parent)
            children.push_back({pid, status[place + 2]});
    });
    return children;
}

std::vector<pid_t> withArgument(std::string_view text)
{
    std::vector<pid_t> found;
    forEach([&](pid_t pid) {
        if (readFile(pid, "cmdline").find(text) != std::string::npos)
            found.push_back(pid);
    });
    return found;
}

std::size_t descriptorCount(pid_t process)
{
    const std::filesystem::directory_iterator entries(fmt::format("/proc/{}/fd", process));
    return static_cast<std::size_t>(std::distance(begin(entries), end(entries)));
}

std::int64_t residentKilobytes(pid_t process)
{
    std::ifstream status(fmt::format("/proc/{}/status", process));
    std::string word;
    std::int64_t value = 0;
    while (status >> word)
        if (word == "VmRSS:" && status >> value)
            return sanitized ? 0 : value;
    return 0;
}

} // namespace processes

} // namespace veltry::test
