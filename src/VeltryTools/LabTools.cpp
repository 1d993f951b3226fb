#include "VeltryTools/LabTools.h"

#include "Base/Text.h"
#include "Config/VeltrySettings.h"
#include "Experiments/RunWatch.h"
#include "VeltryTools/AskUser.h"
#include "VeltryTools/LabTexts.h"
#include "VeltryTools/ProgressNotices.h"

#include <asio/steady_timer.hpp>
#include <asio/this_coro.hpp>
#include <asio/use_awaitable.hpp>
#include <fmt/format.h>

#include <algorithm>

namespace veltry {

namespace {

using Clock = asio::steady_timer::clock_type;

constexpr std::int64_t defaultTimeout = 600; // seconds
constexpr std::int64_t longestTimeout = 1800;
constexpr std::int64_t defaultLogLines = 60;
constexpr std::size_t shownCommit = 12;

/// The run's text: a number in either JSON form as decimal digits, any other text as it is.
std::string runArgument(const JSONValue& arguments)
{
    if (const auto number = LabTools::optionalInt("run", arguments))
        return std::to_string(*number);
    return LabTools::requiredString("run", arguments);
}

std::string titleOf(const Lab& lab, const Run& run)
{
    const std::optional<Experiment> node = lab.store->experiment(run.experimentID);
    return node ? node->title : "?";
}

std::string runsInFlight(std::size_t count)
{
    return fmt::format("{} {} in flight", count, count == 1 ? "run" : "runs");
}

} // namespace

/// A tool and what it does.
struct LabTools::Row {
    Tool tool;
    Answer (LabTools::*handler)(JSONValue arguments, Progress progress) const;
};

const std::vector<LabTools::Row>& LabTools::rows()
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
    static const std::vector<Row> table = {
        {{"experiment_tree",
          "Lists the project's experiment tree: each node's id, title, branch, worktree, whether it is frozen, its "
          "runs and their results. Call it before creating or running anything.",
          object({})},
         &LabTools::experimentTree},
        {{"create_experiment",
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
          })},
         &LabTools::createExperiment},
        {{"set_experiment_notes", "Replaces a node's notes (markdown): what changed, what was observed, what it means.",
          object({
              string("experiment_id", true, "The node."),
              string("notes", true, "The whole notes."),
          })},
         &LabTools::setExperimentNotes},
        {{"run_experiment",
          "Commits what is pending in the node's worktree and starts a run of that commit. Refused for a frozen node "
          "and for a node with a run in flight. Returns at once; use wait_for_runs to wait.",
          object({string("experiment_id", true, "The node to run.")})},
         &LabTools::runExperiment},
        {{"wait_for_runs",
          "Waits until any run in flight in the project finishes, then lists the runs that finished. Answers at once "
          "when nothing is in flight. Call it again for the next one.",
          object({integer("timeout_seconds", false, "How long to wait, up to 1800. 600 by default.")})},
         &LabTools::waitForRuns},
        {{"get_run", "Shows one run: its status, exit code, result, and the end of its log.",
          object({
              string("run", true, "The run's number (7) or id."),
              integer("log_lines", false, "How many lines of the log's end. 60 by default."),
          })},
         &LabTools::getRun},
        {{"cancel_run", "Stops a run and everything it started.",
          object({string("run", true, "The run's number or id.")})},
         &LabTools::cancelRun},
        {{"archive_experiment",
          "Hides a node that led nowhere from the tree, or brings it back. Its branch and runs stay.",
          object({
              string("experiment_id", true, "The node."),
              boolean("archived", false, "False brings it back."),
          })},
         &LabTools::archiveExperiment},
        {{"ask_user",
          "Asks the person one to four questions and waits for their answers. Each question offers up to four options, "
          "and the person can always answer in their own words instead. Ask only what the person alone can decide, not "
          "what reading the project would tell you.",
          object({list("questions", true, "The questions, in the order they are shown.", question, 1, 4)})},
         &LabTools::askUser},
    };
    return table;
}

const std::vector<Tool>& LabTools::tools()
{
    static const std::vector<Tool> shown = shownTools(rows());
    return shown;
}

asio::awaitable<ToolOutcome> LabTools::call(std::string name, JSONValue arguments, Progress progress) const
{
    return outcomeOf(answer(std::move(name), std::move(arguments), std::move(progress)));
}

LabTools::Answer LabTools::answer(std::string name, JSONValue arguments, Progress progress) const
{
    Answer work = callTool(rows(), name, *this, std::move(arguments), std::move(progress));
    co_return co_await std::move(work);
}

std::string LabTools::requiredString(std::string_view key, const JSONValue& arguments)
{
    if (std::optional<std::string> text = optionalString(key, arguments))
        return std::move(*text);
    throw LabError(LabError::Code::missingArgument, fmt::format("Pass {}.", key), {.name = std::string(key)});
}

std::optional<std::string> LabTools::optionalString(std::string_view key, const JSONValue& arguments)
{
    const JSONValue* value = arguments.find(key);
    const std::string* string = value ? value->string() : nullptr;
    if (!string || text::isBlank(*string))
        return std::nullopt;
    return *string;
}

std::optional<std::int64_t> LabTools::optionalInt(std::string_view key, const JSONValue& arguments)
{
    const JSONValue* value = arguments.find(key);
    if (!value)
        return std::nullopt;
    if (const std::string* string = value->string())
        return text::integer(*string);
    return value->integer();
}

LabTools::Answer LabTools::experimentTree(JSONValue /*arguments*/, Progress /*progress*/) const
{
    const LabTexts::Tree tree{
        .experiments = lab.experiments(),
        .runs = lab.reconciledRuns(),
        .citations = lab.store->citations(lab.project.id)};
    co_return LabTexts::tree(lab, tree);
}

LabTools::Answer LabTools::createExperiment(JSONValue arguments, Progress /*progress*/) const
{
    const Lab::NewNode node{
        .title = requiredString("title", arguments),
        .notes = optionalString("description", arguments).value_or(""),
        .parent = optionalString("parent_id", arguments),
        .runCommand = optionalString("run_command", arguments),
        .conversation = conversation};
    const Experiment made = lab.create(node);
    co_return fmt::format(
        "Created {} ({}) on {}.\nWorktree: {}\nRun command: {}\nMake the change in the worktree, then call "
        "run_experiment.",
        made.title, made.id.text(), made.branch, lab.worktree(made).string(), made.runCommand);
}

LabTools::Answer LabTools::setExperimentNotes(JSONValue arguments, Progress /*progress*/) const
{
    const std::string id = requiredString("experiment_id", arguments);
    const std::string notes = requiredString("notes", arguments);
    lab.setNotes(id, notes);
    co_return "Notes saved.";
}

LabTools::Answer LabTools::runExperiment(JSONValue arguments, Progress /*progress*/) const
{
    const std::int64_t maxRuns = settings ? VeltrySettings::load(*settings).maxRuns : 0;
    const std::string id = requiredString("experiment_id", arguments);
    const Run run = lab.launch(id, maxRuns);
    co_return fmt::format(
        "Run {} started ({}) at {}.\nLog: {}\nCall wait_for_runs to wait for it.", run.number, run.id.text(),
        run.commit.substr(0, shownCommit), run.log().string());
}

LabTools::Answer LabTools::waitForRuns(JSONValue arguments, Progress progress) const
{
    const std::int64_t timeout =
        std::clamp<std::int64_t>(optionalInt("timeout_seconds", arguments).value_or(defaultTimeout), 1, longestTimeout);
    RunWatch watch(lab);
    if (watch.waiting() == 0)
        co_return "Nothing is in flight.";

    const Clock::time_point deadline = Clock::now() + std::chrono::seconds(timeout);
    ProgressNotices notices(std::move(progress), progressInterval);
    asio::steady_timer pause(co_await asio::this_coro::executor);
    while (Clock::now() < deadline) {
        pause.expires_after(poll);
        co_await pause.async_wait(asio::use_awaitable);
        const std::vector<Run> finished = watch.finishedSince();
        if (!finished.empty()) {
            std::string text;
            for (const Run& run : finished)
                text += LabTexts::runLine(run, titleOf(lab, run)) + "\n";
            co_return text + fmt::format("{} still in flight.", watch.waiting());
        }
        notices.sendIfDue(runsInFlight(watch.waiting()));
    }
    co_return fmt::format(
        "No run finished within {:.1f} seconds. {} still in flight.", static_cast<double>(timeout), watch.waiting());
}

LabTools::Answer LabTools::getRun(JSONValue arguments, Progress /*progress*/) const
{
    lab.reconcile();
    const Run run = lab.run(runArgument(arguments));
    const std::int64_t logLines = optionalInt("log_lines", arguments).value_or(defaultLogLines);
    const Experiment node = lab.experiment(run.experimentID.text());
    co_return LabTexts::run(run, node.title, logLines);
}

LabTools::Answer LabTools::cancelRun(JSONValue arguments, Progress /*progress*/) const
{
    const Run run = lab.cancel(runArgument(arguments));
    co_return fmt::format("Asked run {} to stop.", run.number);
}

LabTools::Answer LabTools::archiveExperiment(JSONValue arguments, Progress /*progress*/) const
{
    const JSONValue* archived = arguments.find("archived");
    const bool restore = archived && archived->boolean() && !*archived->boolean();
    const std::string id = requiredString("experiment_id", arguments);
    lab.setArchived(id, !restore);
    co_return restore ? "Restored." : "Archived.";
}

LabTools::Answer LabTools::askUser(JSONValue arguments, Progress progress) const
{
    const std::vector<Question> questions = AskUser::questions(arguments);
    if (!conversation)
        throw LabError(
            LabError::Code::noConversation, "Nobody is there to answer: this server serves no conversation.");
    const UUID id = lab.store->ask(questions, *conversation).id;

    const Clock::time_point deadline = Clock::now() + questionWait;
    ProgressNotices notices(std::move(progress), progressInterval);
    asio::steady_timer pause(co_await asio::this_coro::executor);
    while (Clock::now() < deadline) {
        const std::optional<AgentQuestions> round = lab.store->questions(id);
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
