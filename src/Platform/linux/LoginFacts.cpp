#include "Platform/LoginFacts.h"

#include "Base/Error.h"
#include "Base/Text.h"
#include "Platform/ChildProcess.h"
#include "Platform/Files.h"
#include "Platform/ProcessFacts.h"

#include <fmt/format.h>

#include <pwd.h>
#include <unistd.h>

namespace veltry::LoginFacts {

namespace {

constexpr const char* busProgram = "/usr/bin/busctl";

/// As logind itself has it, whatever its files say.
bool endsProcessesOfALogin()
{
    try {
        ChildProcess::Command command{
            .executable = busProgram,
            .arguments =
                {"--system", "--timeout=2", "get-property", "org.freedesktop.login1", "/org/freedesktop/login1",
                 "org.freedesktop.login1.Manager", "KillUserProcesses"},
            .environment = ProcessFacts::environment()};
        return text::trimmed(ChildProcess::run(std::move(command)).output) == "b true";
    } catch (const Error&) {
        return false; // no bus to ask; Debian's own default
    }
}

} // namespace

std::optional<Logins> logins()
{
    if (!Files::isFolder("/run/systemd/system"))
        return std::nullopt;
    Logins facts;
    if (const passwd* user = ::getpwuid(::getuid()))
        facts.lingers = Files::exists(fmt::format("/var/lib/systemd/linger/{}", user->pw_name));
    facts.endsProcesses = endsProcessesOfALogin();
    const std::string group = Files::readIfPossible("/proc/self/cgroup").value_or("");
    facts.isInService = group.contains(fmt::format("/user@{}.service/", ::getuid()));
    return facts;
}

} // namespace veltry::LoginFacts
