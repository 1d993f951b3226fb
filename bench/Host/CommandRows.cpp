#include "Config/VeltrySettings.h"
#include "History.h"
#include "Platform/ChildProcess.h"
#include "Platform/Files.h"
#include "Platform/ProcessFacts.h"
#include "Rows.h"

#include <fmt/format.h>

#include <stdexcept>

namespace veltry::bench {

namespace {

constexpr int rounds = 15;
constexpr History::Size usual{.nodes = 1'000, .runs = 10'000};

/// The command from its start to its end, as text into a pipe, against an aim.
Measured timed(const Workplace& place, const std::vector<std::string>& arguments, double aim)
{
    ChildProcess::Environment environment = ProcessFacts::environment();
    environment["XDG_DATA_HOME"] = (place.folder / "data").string();
    environment["VELTRY_SETTINGS_PATH"] = (place.folder / "settings.toml").string();
    const ChildProcess::Command start{
        .executable = place.tools.parent_path() / "veltry",
        .arguments = arguments,
        .environment = std::move(environment),
        .directory = place.folder,
        .input = {},
        .output = {},
        .error = {},
        .group = ChildProcess::Group::ours};
    const auto ours = [&] {
        return secondsOf([&] {
            if (const ChildProcess::Output output = ChildProcess::run(start); output.exitNumber != 0)
                throw std::runtime_error(output.error);
        });
    };
    return interleaved(rounds, ours, [aim] { return aim; }, least);
}

/// The same with the project of a history.
Measured timed(const Workplace& place, std::vector<std::string> arguments, const History& history, double aim)
{
    Files::createFolders(place.folder / "project");
    arguments.insert(arguments.end(), {"--db", history.store().path().string(), "--project", "Bench"});
    return timed(place, arguments, aim);
}

Measured command(const Workplace& place, std::vector<std::string> arguments, double aim)
{
    const History history(place.folder, "store", usual);
    return timed(place, std::move(arguments), history, aim);
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
    const History history(place.folder, "store", usual);
    fillConversations(history);
    return timed(place, std::move(arguments), history, 0.050);
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

Measured conversationsCommand(const Workplace& place)
{
    return commandOfConversations(place, {"conversations"});
}

Measured settingsCommand(const Workplace& place)
{
    Files::writeAtomically(place.folder / "settings.toml", VeltrySettings::templateText({}));
    return timed(place, {"settings"}, 0.050);
}

} // namespace veltry::bench
