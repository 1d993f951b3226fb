#include "Base/Text.h"
#include "Host/Commands/Commands.h"
#include "Host/Context.h"
#include "Host/Terminal/Notices.h"
#include "Host/Terminal/Prompt.h"
#include "Host/Terminal/Times.h"
#include "Host/Views/RecordJSON.h"
#include "Host/Words/RoundAnswers.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <map>
#include <set>

namespace veltry::Commands {

namespace {

using Count = Option::Count;
using Completion = Option::Completion;

constexpr std::chrono::milliseconds pause(250); // between two looks at the store

/// The titles of conversations and the names of their projects, read when one is first needed.
class Askers {
public:
    explicit Askers(ProjectStore& store) : store_(store) {}

    /// "Attached clients", or with the project "Attached clients of digits".
    std::string name(const UUID& conversation, bool withProject)
    {
        if (!conversations_.contains(conversation))
            readAll(); // one that was made since
        const auto& [title, project] = conversations_[conversation];
        return withProject ? fmt::format("{} of {}", title, project) : title;
    }

private:
    void readAll()
    {
        for (const Project& project : store_.projects())
            for (const Conversation& conversation : store_.conversations(project.id))
                conversations_[conversation.id] = {text::oneLine(conversation.title), text::oneLine(project.name)};
    }

    ProjectStore& store_;
    std::map<UUID, std::pair<std::string, std::string>> conversations_;
};

std::string shortID(const UUID& id)
{
    return id.text().substr(0, 8);
}

/// The questions alone, numbered if there are several.
std::string questionsText(const AgentQuestions& round, std::string_view indent, const Terminal& terminal)
{
    std::string text;
    for (std::size_t index = 0; index < round.questions.size(); ++index)
        text +=
            RoundAnswers::text(round.questions[index], round.questions.size() == 1 ? 0 : index + 1, indent, terminal);
    return text;
}

/// What `questions` shows of one round.
std::string roundText(
    const AgentQuestions& round, const std::optional<std::size_t>& place, const std::string& asker,
    const Terminal& terminal)
{
    const std::string name =
        place ? fmt::format("{}  {}", *place, shortID(round.id)) : fmt::format("{}", shortID(round.id));
    return fmt::format(
        "{}  {}\n{}", terminal.styled(Style::cyan, name),
        terminal.styled(Style::dim, fmt::format("{}, asked {}", asker, Times::ago(round.askedAt))),
        questionsText(round, "   ", terminal));
}

/// `questions --watch`: the rounds as they come, and what becomes of them.
class RoundWatch {
public:
    RoundWatch(Context& context, const std::optional<UUID>& project)
        : context_(context), project_(project), store_(*context.store()), askers_(store_),
          notices_(context.notes().isTerminal() ? context.notes() : context.out())
    {
    }

    [[noreturn]] void run()
    {
        for (const AgentQuestions& round : look())
            show(round);
        if (shown_.empty())
            context_.note("No agent is asking anything yet. Ctrl-C ends the watch.");
        // The version first: what is committed between the two is seen at the next look.
        for (std::int64_t seen = store_.dataVersion();;) {
            for (const AgentQuestions& round : look())
                if (!shown_.contains(round.id)) {
                    show(round);
                    call(round);
                }
            std::int64_t now = seen;
            for (; now == seen; now = store_.dataVersion())
                context_.out().rest(pause);
            seen = now;
        }
    }

private:
    /// The open rounds. Tells of those that were open before and no longer are.
    std::vector<AgentQuestions> look()
    {
        std::vector<AgentQuestions> open = store_.openRounds(project_);
        for (auto one = shown_.begin(); one != shown_.end();) {
            if (std::ranges::find(open, *one, &AgentQuestions::id) != open.end()) {
                ++one;
                continue;
            }
            tellEnd(*one);
            one = shown_.erase(one);
        }
        return open;
    }

    void show(const AgentQuestions& round)
    {
        shown_.insert(round.id);
        if (context_.json())
            return context_.print(RecordJSON::of(round).text() + "\n");
        context_.print(roundText(round, {}, askers_.name(round.conversationID, !project_), context_.out()));
        context_.print(fmt::format("   veltry answer {}\n\n", shortID(round.id)));
    }

    void tellEnd(const UUID& id)
    {
        const std::optional<AgentQuestions> round = store_.questions(id);
        if (!context_.json())
            context_.print(fmt::format(
                "{}  {}\n\n", context_.out().styled(Style::cyan, shortID(id)),
                round ? toWord(round->status) : "removed"));
        else if (round)
            context_.print(RecordJSON::of(*round).text() + "\n");
    }

    void call(const AgentQuestions& round)
    {
        const std::string question = round.questions.empty() ? "" : round.questions.front().question;
        notices_.tell(
            Notices::Subject::turn, Context::settings(),
            fmt::format("{} asks", askers_.name(round.conversationID, true)), question);
    }

    Context& context_;
    std::optional<UUID> project_;
    ProjectStore& store_;
    Askers askers_;
    Notices notices_;
    std::set<UUID> shown_;
};

void questions(Context& context, const Arguments& arguments)
{
    const bool isAll = arguments.has("--all");
    const std::optional<UUID> project = isAll ? std::nullopt : std::optional(context.project().id);
    if (arguments.has("--watch"))
        RoundWatch(context, project).run();
    const std::vector<AgentQuestions> open = context.store()->openRounds(project);
    if (context.json()) {
        JSONValue::Array list;
        for (const AgentQuestions& round : open)
            list.push_back(RecordJSON::of(round));
        return context.printJSON(JSONValue(std::move(list)));
    }
    if (open.empty())
        return context.note("No agent is asking anything.");
    Askers askers(*context.store());
    std::string text;
    for (std::size_t index = 0; index < open.size(); ++index) {
        if (index > 0)
            text += '\n';
        // Places are those of the project's rounds, by which `answer` finds them.
        text += roundText(
            open[index], isAll ? std::nullopt : std::optional(index + 1),
            askers.name(open[index].conversationID, isAll), context.out());
    }
    context.print(text);
    context.note(fmt::format("\nTo answer: veltry answer {}", isAll ? shortID(open.front().id) : "1"));
}

/// Asks again until the line means something. Returns nothing at the end of the input.
std::optional<Answer> askedAnswer(const Context& context, const Question& question)
{
    const std::string prompt = context.notes().styled(Style::dim, RoundAnswers::prompt(question)) + "> ";
    while (const std::optional<std::string> line = Prompt::line(context.notes(), prompt)) {
        std::expected<Answer, std::string> answer = RoundAnswers::fromLine(question, *line);
        if (answer)
            return std::move(*answer);
        if (!canAsk()) // the next line of a pipe was meant for the next question
            throw Refusal(fmt::format("Nothing was answered. \"{}\": {}", text::oneLine(*line), answer.error()));
        context.note(answer.error());
    }
    return std::nullopt;
}

std::vector<Answer> askedAnswers(const Context& context, const AgentQuestions& round)
{
    std::vector<Answer> answers;
    const std::size_t count = round.questions.size();
    for (const Question& question : round.questions) {
        const std::size_t number = answers.size() + 1;
        if (canAsk())
            context.notes().write(RoundAnswers::text(question, count == 1 ? 0 : number, "", context.notes()));
        std::optional<Answer> answer = askedAnswer(context, question);
        if (!answer)
            throw Refusal(fmt::format(
                "Nothing was answered: the input ended at question {} of {}. The round {} stays open.", number, count,
                shortID(round.id)));
        answers.push_back(std::move(*answer));
    }
    if (std::ranges::all_of(answers, &Answer::isEmpty))
        throw Refusal(
            fmt::format("Nothing was answered. To let the agent decide: veltry dismiss {}.", shortID(round.id)));
    return answers;
}

/// Another may have closed the round meanwhile, and the first to close it wins.
void checkClosed(
    const Context& context, ProjectStore& store, const UUID& id, AgentQuestions::Status wanted,
    const std::optional<std::vector<Answer>>& answers, std::string_view done)
{
    const std::optional<AgentQuestions> round = store.questions(id);
    if (!round)
        throw Refusal(fmt::format("The round {} is gone: its conversation was removed meanwhile.", shortID(id)));
    if (round->status != wanted || round->answers != answers)
        throw Refusal(fmt::format("Too late: the round {} was {} meanwhile.", shortID(id), toWord(round->status)));
    context.note(done);
}

void answer(Context& context, const Arguments& arguments)
{
    const AgentQuestions round = context.round(arguments.required("ROUND"));
    const std::vector<std::string> choices = arguments.all("--choose");
    const std::vector<std::string> words = arguments.all("--other");
    const std::vector<Answer> answers = choices.empty() && words.empty()
                                            ? askedAnswers(context, round)
                                            : RoundAnswers::fromOptions(round.questions, choices, words);
    ProjectStore& store = *context.store();
    store.answer(round.id, answers);
    std::string done = "Answered:";
    for (std::size_t index = 0; index < answers.size(); ++index)
        done += answers.size() == 1 ? " " + RoundAnswers::kept(answers[index])
                                    : fmt::format("\n  {}. {}", index + 1, RoundAnswers::kept(answers[index]));
    checkClosed(
        context, store, round.id, AgentQuestions::Status::answered, answers,
        done + "\nThe agent that waits reads it within a second.");
}

void dismiss(Context& context, const Arguments& arguments)
{
    const AgentQuestions round = context.round(arguments.required("ROUND"));
    ProjectStore& store = *context.store();
    store.dismissQuestions(round.id);
    checkClosed(
        context, store, round.id, AgentQuestions::Status::dismissed, {},
        "Dismissed. The agent is told to decide by itself, and to say what it assumed.");
}

constexpr std::array questionOptions = {
    Option{"--watch", "", "Keep watching, and call for each new round with the bell and a notice on the desktop"},
    Option{"--all", "", "For all projects"},
};

constexpr Option roundOption = {
    "ROUND", "", "Its number in veltry questions, or its id or the start of it", Count::required, Completion::round};

constexpr std::array answerOptions = {
    roundOption,
    Option{
        "--choose", "CHOICE",
        "Number or label of a choice; in a round of several questions 2:CHOICE, and 2:#1 for number 1 beside a label "
        "\"1\"",
        Count::many},
    Option{"--other", "WORDS", "An answer in words; in a round of several questions 2:WORDS", Count::many},
};

constexpr std::array dismissOptions = {roundOption};

constexpr std::array table = {
    Command{
        .name = "questions",
        .summary = "List what agents ask and nobody has answered",
        .example = "veltry questions --watch",
        .hasJSON = true,
        .options = questionOptions,
        .run = &questions},
    Command{
        .name = "answer",
        .summary = "Answer a round of questions, one after the other",
        .example = "veltry answer 1\nveltry answer 1 --choose 2 --other \"with weight decay\"",
        .options = answerOptions,
        .run = &answer},
    Command{
        .name = "dismiss",
        .summary = "Close a round without answers: the agent decides by itself",
        .example = "veltry dismiss 1",
        .options = dismissOptions,
        .run = &dismiss},
};

} // namespace

Family questionCommands()
{
    return table;
}

} // namespace veltry::Commands
