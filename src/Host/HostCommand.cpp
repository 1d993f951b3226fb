#include "Host/HostCommand.h"

#include "Base/Error.h"
#include "Base/Text.h"
#include "Experiments/LabError.h"
#include "Host/CommandLine/CommandTable.h"
#include "Host/CommandLine/Grammar.h"
#include "Host/Context.h"
#include "Host/Terminal/Interruption.h"
#include "Host/Words/LabErrorWords.h"
#include "Platform/ProcessEnd.h"

#include <fmt/format.h>

#include <filesystem>
#include <span>

namespace veltry::HostCommand {

namespace {

constexpr int failure = 1;
constexpr int usageError = 2;

/// In one line, as every error is told.
int told(const Terminal& notes, const std::string& what, int status)
{
    try {
        notes.write(fmt::format("veltry: {}\n", text::oneLine(text::trimmed(what))));
    } catch (...) { // nobody is left to tell
    }
    return status;
}

/// "$UNSET" in a script: it names neither the default nor the folder that we are in.
void refuseEmptyPaths(std::span<const Option> options, const Arguments& given)
{
    for (const Option& option : options) {
        const bool isPath =
            option.completion == Option::Completion::file || option.completion == Option::Completion::folder;
        if (isPath && given.text(option.name()) == "")
            throw UsageError(fmt::format(
                "{0} is empty. Name a {1}, or leave {0} out.", option.name(),
                option.completion == Option::Completion::file ? "file" : "folder"));
    }
}

/// What the standard library only says of the call that failed.
std::string words(const std::filesystem::filesystem_error& thrown)
{
    std::error_code error;
    static_cast<void>(std::filesystem::current_path(error));
    return error ? "The working folder is gone: it was removed or moved. Change to one that is there, with cd."
                 : describe(thrown);
}

void run(const Grammar::Asked& asked, const Terminal& out, const Terminal& notes)
{
    if (!asked.command)
        return out.write(asked.text);
    const Arguments& given = asked.arguments;
    refuseEmptyPaths(asked.command->options, given);
    refuseEmptyPaths(CommandTable::commonOptions(*asked.command), given);
    Context context(
        {.database = given.text("--db"), .project = given.text("--project"), .json = given.has("--json")}, out, notes);
    try {
        asked.command->run(context, given);
    } catch (const DatabaseError& error) {
        throw context.refusal(error);
    }
}

} // namespace

int main(const std::vector<std::string>& arguments)
{
    ProcessEnd::ignoreBrokenPipes(); // `veltry … | head` ends with a failed write
    Interruption::install();
    const Terminal notes = Terminal::standardError();
    try {
        run(Grammar::read(arguments), Terminal::standardOutput(), notes);
        return 0;
    } catch (const Terminal::Closed&) {
        return 0;
    } catch (const ProcessEnd::Requested& by) {
        ProcessEnd::leaveBy(by.signal);
    } catch (const UsageError& error) {
        return told(notes, error.description(), usageError);
    } catch (const LabError& error) {
        return told(notes, LabErrorWords::forPerson(error), failure);
    } catch (const std::filesystem::filesystem_error& error) {
        return told(notes, words(error), failure);
    } catch (const std::exception& error) {
        return told(notes, describe(error), failure);
    }
}

} // namespace veltry::HostCommand
