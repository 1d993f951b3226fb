#include "StoreSupport.h"

#include "Platform/ChildProcess.h"
#include "Platform/Files.h"

namespace veltry::test {

std::vector<std::string> inProcesses(
    int count, const std::filesystem::path& store, const std::vector<std::string>& work)
{
    const TemporaryFolder folder;
    Pipe gate = Pipe::make();
    std::vector<pid_t> children;
    for (int index = 0; index < count; ++index) {
        ChildProcess::Command command{};
        command.executable = STORE_PROCESS;
        command.arguments = {store.string()};
        command.arguments.insert(command.arguments.end(), work.begin(), work.end());
        command.input = ChildProcess::Stream::to(gate.reading.get());
        command.error = ChildProcess::Stream::appendTo(folder / std::to_string(index));
        children.push_back(ChildProcess::start(command));
    }
    gate.writing.reset();

    std::vector<std::string> failures;
    for (std::size_t index = 0; index < children.size(); ++index)
        if (const int status = ChildProcess::wait(children[index]); status != 0)
            failures.push_back(std::to_string(status) + ": " + Files::read(folder / std::to_string(index)));
    return failures;
}

Experiment StoreTest::makeExperiment(const UUID& projectID, const std::string& slug)
{
    return Experiment{
        .id = UUID::random(),
        .projectID = projectID,
        .slug = slug,
        .branch = "veltry/" + slug,
        .title = "Try " + slug,
        .runCommand = "python3 train.py",
        .createdAt = Date::now(),
    };
}

Experiment StoreTest::insertExperiment(const UUID& projectID, const std::string& slug)
{
    const Experiment made = makeExperiment(projectID, slug);
    store.insertExperiment(made);
    return made;
}

std::vector<std::string> rows(const std::filesystem::path& store, const std::string& sql, int columns)
{
    return Database(store).withConnection([&](Connection& connection) {
        std::vector<std::string> lines;
        for (Statement row = connection.query(sql); row.step();) {
            std::string line = row.string(0);
            for (int column = 1; column < columns; ++column)
                line += "|" + row.string(column);
            lines.push_back(std::move(line));
        }
        return lines;
    });
}

} // namespace veltry::test
