#include "Config/VeltrySettings.h"
#include "Experiments/RunLog/RunLog.h"
#include "History.h"
#include "Platform/Files.h"
#include "Programs.h"
#include "Rows.h"

#include <fmt/format.h>

namespace veltry::bench {

namespace {

constexpr int rounds = 15;

/// Seconds that a program takes from its start to its end, writing into a pipe.
double secondsOfProgram(const ChildProcess::Command& command)
{
    return secondsOf([&] { runProgram(command); });
}

Measured timed(const ChildProcess::Command& command, double aim)
{
    return interleaved(rounds, [&] { return secondsOfProgram(command); }, [aim] { return aim; }, least);
}

/// In the project of a long history.
Measured command(const Workplace& place, std::vector<std::string> arguments, double aim)
{
    const History history(place.folder, "store", History::middling);
    return timed(veltryCommand(place, std::move(arguments), &history.lab()), aim);
}

/// A hundred conversations, each with nine closed rounds of questions and an open one.
void fillConversations(const History& history)
{
    for (int number = 0; number < 100; ++number) {
        const Conversation conversation =
            history.store().createConversation(history.project(), fmt::format("Conversation {}", number), "Agent");
        for (int round = 0; round < 10; ++round) {
            const std::vector<Question> questions = {
                {.question = fmt::format("Which optimizer is run {} to use?", round),
                 .detail = {},
                 .options = {{.label = "AdamW", .description = "As before"}, {.label = "SGD", .description = {}}},
                 .multiSelect = false}};
            const AgentQuestions asked = history.store().ask(questions, conversation.id);
            if (round > 0)
                history.store().answer(asked.id, {{.chosen = {"SGD"}, .other = {}}});
        }
    }
}

Measured commandOfConversations(const Workplace& place, std::vector<std::string> arguments)
{
    const History history(place.folder, "store", History::middling);
    fillConversations(history);
    return timed(veltryCommand(place, std::move(arguments), &history.lab()), 0.050);
}

} // namespace

Measured treeCommand(const Workplace& place)
{
    return command(place, {"tree", "--best", "min"}, 0.150);
}

Measured listCommand(const Workplace& place)
{
    return command(place, {"list"}, 0.150);
}

Measured showCommand(const Workplace& place)
{
    return command(place, {"show", "learning-rate-500e-5-longer-warm-up"}, 0.050);
}

Measured showRunCommand(const Workplace& place)
{
    return command(place, {"show", "9000"}, 0.050);
}

Measured questionsCommand(const Workplace& place)
{
    return commandOfConversations(place, {"questions"});
}

Measured projectsCommand(const Workplace& place)
{
    const History history(place.folder, "store", History::middling);
    fillConversations(history);
    return timed(veltryCommand(place, {"projects", "--db", history.store().path().string()}), 0.050);
}

Measured conversationsCommand(const Workplace& place)
{
    return commandOfConversations(place, {"conversations"});
}

Measured settingsCommand(const Workplace& place)
{
    Files::writeAtomically(place.folder / "settings.toml", VeltrySettings::templateText({}));
    return timed(veltryCommand(place, {"settings"}), 0.050);
}

Measured logCommand(const Workplace& place)
{
    const History history(place.folder, "store", History::middling);
    const Run run = history.store().run(9000, history.project()).value();
    Files::createFolders(run.directory);
    std::string lines;
    for (int line = 0; line < 100'000; ++line)
        lines += fmt::format("step {} loss 1.0123 at the length that such lines usually have\n", line);
    Files::writeAtomically(run.log(), lines);
    RunLog::stampWhole(run.log(), Date::now(), 0.01);
    return timed(veltryCommand(place, {"log", "9000", "-n", "100"}, &history.lab()), 0.050);
}

Measured compareCommand(const Workplace& place)
{
    return command(place, {"compare", "#5000", "#9000"}, 0.050);
}

Measured completeCommand(const Workplace& place)
{
    return command(place, {"complete", "node", "learning"}, 0.050);
}

Measured diskCommand(const Workplace& place)
{
    const History history(place.folder, "store", History::middling);
    for (std::int64_t number = 1; number <= 1'000; ++number) {
        const Run run = history.store().run(number, history.project()).value();
        Files::createFolders(run.source());
        for (int file = 0; file < 10; ++file)
            Files::writeAll(Files::open(run.source() / fmt::format("{}.py", file), Files::forAppending), "1", "file");
    }
    const ChildProcess::Command ours = veltryCommand(place, {"disk"}, &history.lab());
    const ChildProcess::Command du = program("/usr/bin/du", {"-s", history.lab().runsFolder.string()});
    return interleaved(rounds, [&] { return secondsOfProgram(ours); }, [&] { return secondsOfProgram(du); }, least);
}

} // namespace veltry::bench
