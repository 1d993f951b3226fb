#include "Base/Numbers.h"
#include "Experiments/Computer.h"
#include "Experiments/Spawn.h"
#include "Host/Commands/Commands.h"
#include "Host/Commands/SharedOptions.h"
#include "Host/Context.h"
#include "Host/Doctor/MachineFindings.h"
#include "Host/Doctor/StoreFindings.h"
#include "Host/Registration/ClientConfiguration.h"
#include "Host/Registration/Init.h"
#include "Host/Terminal/Prompt.h"
#include "Platform/ProcessFacts.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <chrono>

namespace veltry::Commands {

namespace {

using Level = Finding::Level;

void append(std::vector<Finding>& findings, std::vector<Finding> more)
{
    std::ranges::move(more, std::back_inserter(findings));
}

std::vector<Finding> examined(const std::filesystem::path& path, const StoreFindings::Store& store)
{
    const VeltrySettings settings = Context::settings();
    std::vector<Finding> findings = MachineFindings::programs(std::filesystem::current_path(), Context::tools());
    append(findings, MachineFindings::agents(settings.defaultAgent));
    findings.push_back(store.finding);
    if (store.state == StoreFindings::Store::State::sound)
        append(findings, StoreFindings::projects(*store.store));
    append(findings, StoreFindings::places(path, Lab::defaultRuns()));
    append(findings, MachineFindings::fit(MachineFindings::capacity(), settings.maxRuns));
    findings.push_back(MachineFindings::logins());
    append(findings, StoreFindings::settings(Context::settingsPath()));
    return findings;
}

/// How a client attaches to the project here, if there is one and `init` has made it ready.
std::optional<ClientConfiguration> clientHere(Context& context, std::string_view kind)
try {
    const ProjectStore& store = *context.store();
    if (const auto conversation = Init::conversationOfClients(store, context.project()))
        return ClientConfiguration::of(store, context.project(), *conversation, ProcessFacts::environment(), kind);
    return std::nullopt;
} catch (const Error&) { // no project here, no store; the findings say so where it matters
    return std::nullopt;
}

/// As the server describes it to an agent that is attached by veltry.
std::string computerHere()
{
    const auto python =
        LoginPython::kept(LoginPython::file(Context::settingsPath()), Spawn::loginShell(), std::chrono::seconds(0));
    return Computer::current(Lab::defaultRuns(), Context::settings().maxRuns, python).description();
}

/// Moves a store that can't be read out of the way, after a yes, and makes an empty one.
bool setAside(const Context& context, bool isWanted)
{
    if (!isWanted && !Prompt::confirms(context.notes(), "Set the damaged store aside and begin with an empty one?"))
        return false;
    const ProjectStore::Opened opened = ProjectStore::openOrReplace(context.storePath());
    if (opened.movedAside)
        context.note(fmt::format(
            "The damaged store lies at {} now, and {} is a new one. Register your projects again: veltry init.",
            opened.movedAside->string(), context.storePath().string()));
    else
        context.note("The store that is there now can be read, so nothing was set aside: another program was quicker.");
    return true;
}

void doctor(Context& context, const Arguments& arguments)
{
    using State = StoreFindings::Store::State;
    StoreFindings::Store store = StoreFindings::store(context.storePath());
    std::vector<Finding> findings = examined(context.storePath(), store);
    const std::string kind = context.json() ? "common" : arguments.text("--client").value_or("common");
    std::optional<ClientConfiguration> client;
    if (store.state == State::sound)
        client = clientHere(context, kind);
    const std::string computer = computerHere();
    if (context.json()) {
        JSONValue::Array list;
        for (const Finding& finding : findings)
            list.push_back(toJSON(finding));
        JSONValue::Object document{{"findings", std::move(list)}, {"computer", computer}};
        if (client)
            document.emplace("clientConfiguration", JSONValue::parse(client->text()));
        context.printJSON(document);
    } else {
        context.print(drawn(findings, context.out()));
        context.print("\nWhat an agent is told here:\n" + computer + "\n");
        if (client) {
            context.print("\nFor an MCP client of this project:\n" + client->text());
            for (const std::string& line : client->notes())
                context.note(line);
        }
    }
    auto wrong = std::ranges::count(findings, Level::wrong, &Finding::level);
    if (store.state == State::damaged && setAside(context, arguments.has("--set-aside")))
        --wrong;
    if (wrong > 0)
        throw Refusal(counted(wrong, "thing is wrong.", "things are wrong."));
}

constexpr std::array options = {
    Option{"--set-aside", "", "Move a store that can't be read aside and make an empty one, without asking"},
    clientOption,
};

constexpr std::array table = {
    Command{
        .name = "doctor",
        .summary = "Check whether all that is needed works, and say what to do where it doesn't",
        .example = "veltry doctor",
        .hasJSON = true,
        .options = options,
        .run = &doctor},
};

} // namespace

Family doctorCommand()
{
    return table;
}

} // namespace veltry::Commands
