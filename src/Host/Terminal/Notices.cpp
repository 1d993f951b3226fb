#include "Host/Terminal/Notices.h"

#include "Base/Text.h"
#include "Platform/ChildProcess.h"
#include "Platform/ProcessFacts.h"

#include <algorithm>

namespace veltry {

namespace {

/// The body may hold a little markup, which nobody outside is to write.
std::string escaped(std::string_view body)
{
    std::string text = text::oneLine(body);
    text = text::replacingAll(text, "&", "&amp;");
    text = text::replacingAll(text, "<", "&lt;");
    return text::replacingAll(text, ">", "&gt;");
}

} // namespace

Notices::~Notices()
{
    for (const ProcessID sender : senders_)
        ChildProcess::reapIfEnded(sender); // one that hangs is left to init
}

void Notices::tell(Subject subject, const VeltrySettings& settings, std::string_view title, std::string_view body)
{
    if (subject == Subject::turn && terminal_.isTerminal() && settings.sound != "none")
        terminal_.write("\a");
    // Ended senders are taken note of here, since nobody waits for them.
    std::erase_if(senders_, &ChildProcess::reapIfEnded);
    if (!(subject == Subject::turn ? settings.notifyTurns : settings.notifyRuns))
        return;
    const std::optional<std::filesystem::path> program =
        ChildProcess::find("notify-send", ProcessFacts::variable("PATH").value_or(""));
    if (!program)
        return;
    try {
        senders_.push_back(ChildProcess::start(
            {.executable = *program,
             .arguments = {"--app-name=Veltry", "--", text::oneLine(title), escaped(body)},
             .environment = ProcessFacts::environment(),
             .directory = {},
             .input = {},
             .output = {},
             .error = {}}));
    } catch (const ChildProcess::StartFailure&) { // the bell has rung all the same
    }
}

} // namespace veltry
