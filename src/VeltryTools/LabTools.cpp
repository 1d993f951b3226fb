#include "VeltryTools/LabTools.h"

#include "Base/Numbers.h"
#include "Base/Text.h"
#include "Config/VeltrySettings.h"
#include "Experiments/RunWatch.h"
#include "VeltryTools/AskUser.h"
#include "VeltryTools/LabTexts.h"
#include "VeltryTools/ProgressNotices.h"
#include "VeltryTools/ToolArguments.h"

#include <asio/steady_timer.hpp>
#include <asio/this_coro.hpp>
#include <asio/use_awaitable.hpp>
#include <fmt/format.h>

#include <algorithm>
#include <functional>

namespace veltry {

namespace {

using Clock = asio::steady_timer::clock_type;

constexpr std::int64_t defaultTimeout = 600; // seconds
constexpr std::int64_t longestTimeout = 1800;
constexpr std::int64_t defaultLogLines = 60;
constexpr std::size_t shownCommit = 12;

std::string titleOf(const Lab& lab, const Run& run)
{
    const std::optional<Experiment> node = lab.store->experiment(run.experimentID);
    return node ? node->title : "?";
}

std::string runsInFlight(std::size_t count)
{
    return counted(static_cast<std::int64_t>(count), "run in flight", "runs in flight");
}

} // namespace

std::vector<Tool> LabTools::tools() const
{
    using namespace schema;
    static const JSONValue option = object({
        string("label", true, "The choice, in a few words."),
        string("description", false, "What picking it means."),
    });
    static const JSONValue question = object({
        string("question", true, "The question, ending in a question mark."),
        string("detail", false, "One short line under the question: what the answer decides."),
        list("options", false, "The choices. Leave out to ask for an answer in words.", option, -1, 4),
        boolean("multi_select", false, "Whether more than one option may be picked."),
    });
    const auto self = std::make_shared<const LabTools>(*this);
    return {
        {"experiment_tree",
         "Lists the project's experiment tree: each node's id, title, branch, worktree, whether it is frozen, its "
         "runs and their results. Call it before creating or running anything.",
         object({}), std::bind_front(&LabTools::experimentTree, self)},
        {"create_experiment",
         "Creates a node on a new git branch with its own worktree. Without parent_id it makes a baseline, which "
         "needs run_command. With parent_id it starts from the parent's branch and runs the parent's command. Make "
         "the node's change in the worktree it returns.",
         object({
             string("title", true, "The idea the node tests, in a few words: \"LR 3e-5\"."),
             string("description", false, "The concrete change, and why."),
             string("parent_id", false, "The node to start from. Leave out for a baseline."),
             string(
                 "run_command", false,
                 "Baseline only: the one shell command that trains or evaluates a node and writes its result to "
                 "$HARROWICK_RESULT_PATH."),
         }),
         std::bind_front(&LabTools::createExperiment, self)},
        {"set_experiment_notes", "Replaces a node's notes (markdown): what changed, what was observed, what it means.",
         object({
             string("experiment_id", true, "The node."),
             string("notes", true, "The whole notes."),
         }),
         std::bind_front(&LabTools::setExperimentNotes, self)},
        {"run_experiment",
         "Commits what is pending in the node's worktree and starts a run of that commit. Refused for a frozen node "
         "and for a node with a run in flight. Returns at once; use wait_for_runs to wait.",
         object({string("experiment_id", true, "The node to run.")}), std::bind_front(&LabTools::runExperiment, self)},
        {"wait_for_runs",
         "Waits until any run in flight in the project finishes, then lists the runs that finished. Answers at once "
         "when nothing is in flight. Call it again for the next one.",
         object({integer("timeout_seconds", false, "How long to wait, up to 1800. 600 by default.")}),
         std::bind_front(&LabTools::waitForRuns, self)},
        {"get_run", "Shows one run: its status, exit code, result, and the end of its log.",
         object({
             string("run", true, "The run's number (7) or id."),
             integer("log_lines", false, "How many lines of the log's end. 60 by default."),
         }),
         std::bind_front(&LabTools::getRun, self)},
        {"cancel_run", "Stops a run and everything it started.",
         object({string("run", true, "The run's number or id.")}), std::bind_front(&LabTools::cancelRun, self)},
        {"archive_experiment",
         "Hides a node that led nowhere from the tree, or brings it back. Its branch and runs stay.",
         object({
             string("experiment_id", true, "The node."),
             boolean("archived", false, "False brings it back."),
         }),
         std::bind_front(&LabTools::archiveExperiment, self)},
        {"ask_user",
         "Asks the person one to four questions and waits for their answers. Each question offers up to four options, "
         "and the person can always answer in their own words instead. Ask only what the person alone can decide, not "
         "what reading the project would tell you.",
         object({list("questions", true, "The questions, in the order they are shown.", question, 1, 4)}),
         std::bind_front(&LabTools::askUser, self)},
    };
}

std::string LabTools::experimentTree(const JSONValue& /*arguments*/) const
{
    return LabTexts::tree(*lab, lab->tree());
}

std::string LabTools::createExperiment(const JSONValue& arguments) const
{
    const Lab::NewNode node{
        .title = ToolArguments::requiredString("title", arguments),
        .notes = ToolArguments::optionalString("description", arguments).value_or(""),
        .parent = ToolArguments::optionalString("parent_id", arguments).transform(&NodeName::parse),
        .runCommand = ToolArguments::optionalString("run_command", arguments),
        .conversation = conversation};
    const Experiment made = lab->create(node);
    return fmt::format(
        "Created {} ({}) on {}.\nWorktree: {}\nRun command: {}\nMake the change in the worktree, then call "
        "run_experiment.",
        made.title, made.id.text(), made.branch, lab->worktree(made).string(), made.runCommand);
}

std::string LabTools::setExperimentNotes(const JSONValue& arguments) const
{
    const NodeName node = ToolArguments::node(arguments);
    const std::string notes = ToolArguments::requiredString("notes", arguments);
    lab->setNotes(node, notes);
    return "Notes saved.";
}

std::string LabTools::runExperiment(const JSONValue& arguments) const
{
    // Afresh at each call, so that an edit counts from the next run on.
    const std::int64_t maxRuns = settings ? VeltrySettings::load(*settings).maxRuns : 0;
    const Run run = lab->launch(ToolArguments::node(arguments), maxRuns);
    return fmt::format(
        "Run {} started ({}) at {}.\nLog: {}\nCall wait_for_runs to wait for it.", run.number, run.id.text(),
        run.commit.substr(0, shownCommit), run.log().string());
}

LabTools::Answer LabTools::waitForRuns(JSONValue arguments, Progress progress) const
{
    const std::int64_t timeout = std::clamp<std::int64_t>(
        ToolArguments::optionalInt("timeout_seconds", arguments).value_or(defaultTimeout), 1, longestTimeout);
    // What is in flight now: runs that start later aren't waited for.
    RunWatch watch(*lab);
    if (watch.waiting() == 0)
        co_return "Nothing is in flight.";

    const Clock::time_point deadline = Clock::now() + std::chrono::seconds(timeout);
    ProgressNotices notices(std::move(progress), progressInterval);
    const asio::any_io_executor executor = co_await asio::this_coro::executor;
    asio::steady_timer pause(executor);
    while (Clock::now() < deadline) {
        pause.expires_after(poll);
        co_await pause.async_wait(asio::use_awaitable);
        const std::vector<Run> finished = watch.finishedSince();
        // All that one look found, since a run that has ended is never listed again.
        if (!finished.empty()) {
            std::string text;
            for (const Run& run : finished)
                text += LabTexts::runLine(run, titleOf(*lab, run)) + "\n";
            co_return text + fmt::format("{} still in flight.", watch.waiting());
        }
        notices.sendIfDue(runsInFlight(watch.waiting()));
    }
    co_return fmt::format(
        "No run finished within {:.1f} seconds. {} still in flight.", static_cast<double>(timeout), watch.waiting());
}

std::string LabTools::getRun(const JSONValue& arguments) const
{
    // First, or a run whose supervisor was killed would be shown as running.
    lab->reconcile();
    const Run run = lab->run(ToolArguments::run(arguments));
    const std::int64_t logLines = ToolArguments::optionalInt("log_lines", arguments).value_or(defaultLogLines);
    const Experiment node = lab->experiment(run.experimentID);
    return LabTexts::run(run, node.title, logLines);
}

std::string LabTools::cancelRun(const JSONValue& arguments) const
{
    const Run run = lab->cancel(ToolArguments::run(arguments));
    return fmt::format("Asked run {} to stop.", run.number);
}

std::string LabTools::archiveExperiment(const JSONValue& arguments) const
{
    const bool restore = ToolArguments::isExactly(false, "archived", arguments);
    lab->setArchived(ToolArguments::node(arguments), !restore);
    return restore ? "Restored." : "Archived.";
}

LabTools::Answer LabTools::askUser(JSONValue arguments, Progress progress) const
{
    const std::vector<Question> questions = AskUser::questions(arguments);
    if (!conversation)
        throw LabError(
            LabError::Code::noConversation, "Nobody is there to answer: this server serves no conversation.");
    const UUID id = lab->store->ask(questions, *conversation).id;

    const Clock::time_point deadline = Clock::now() + questionWait;
    ProgressNotices notices(std::move(progress), progressInterval);
    const asio::any_io_executor executor = co_await asio::this_coro::executor;
    asio::steady_timer pause(executor);
    while (Clock::now() < deadline) {
        // The look comes before the pause: the round may be one that was answered while nobody waited.
        const std::optional<AgentQuestions> round = lab->store->questions(id);
        // Its project was removed, so nobody will answer.
        if (!round)
            break;
        if (std::optional<std::string> text = AskUser::outcome(questions, *round))
            co_return std::move(*text);
        notices.sendIfDue("waiting for the person's answer");
        pause.expires_after(poll);
        co_await pause.async_wait(asio::use_awaitable);
    }
    co_return std::string(AskUser::noAnswerYet);
}

} // namespace veltry
