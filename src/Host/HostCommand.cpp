#include "Host/HostCommand.h"

#include "Base/Error.h"
#include "Base/Text.h"
#include "Experiments/LabError.h"
#include "Host/CommandLine/Grammar.h"
#include "Host/Context.h"
#include "Host/Terminal/Interruption.h"
#include "Host/Words/LabErrorWords.h"
#include "Platform/ProcessEnd.h"

#include <fmt/format.h>

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

void run(const Grammar::Asked& asked, const Terminal& out, const Terminal& notes)
{
    if (!asked.command)
        return out.write(asked.text);
    const Arguments& given = asked.arguments;
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
    } catch (const std::exception& error) {
        return told(notes, describe(error), failure);
    }
}

} // namespace veltry::HostCommand
