#include "ServerLab.h"

#include "Base/Text.h"
#include "Experiments/Supervisor.h"
#include "Platform/Files.h"
#include "Support/Eventually.h"

#include <fmt/format.h>

#include <algorithm>
#include <filesystem>
#include <functional>
#include <stdexcept>

namespace veltry::test {

ServerLab::ServerLab(const std::filesystem::path& database) : TestLab(Repository::Options{}, database)
{
    hold();
}

ServerLab::~ServerLab()
{
    letGo();
    static_cast<void>(allEnded());
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

/// The processes of which `matches` says so, given a file of theirs; that of one that has just gone is empty.
std::vector<pid_t> whose(const char* file, const std::function<bool(const std::string& contents)>& matches)
{
    std::vector<pid_t> found;
    for (const auto& entry : std::filesystem::directory_iterator("/proc")) {
        const std::optional<std::int64_t> pid = text::integer(entry.path().filename().string());
        if (pid && matches(Files::readIfPossible(entry.path() / file).value_or("")))
            found.push_back(static_cast<pid_t>(*pid));
    }
    return found;
}

} // namespace

std::vector<pid_t> childrenOf(pid_t parent)
{
    return whose("stat", [&](const std::string& stat) { // "7 (name) S 1 ...", where the name may hold anything
        const std::size_t place = stat.rfind(") ");
        return place != std::string::npos && std::stoi(stat.substr(place + 4)) == parent;
    });
}

std::vector<pid_t> withArgument(std::string_view text)
{
    return whose("cmdline", [&](const std::string& words) { return words.find(text) != std::string::npos; });
}

} // namespace processes

} // namespace veltry::test
