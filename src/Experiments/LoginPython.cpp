#include "Experiments/LoginPython.h"

#include "Base/JSONValue.h"
#include "Base/Text.h"
#include "Platform/ChildProcess.h"
#include "Platform/Files.h"
#include "Platform/ProcessFacts.h"

namespace veltry {

namespace {

// A profile may wait for something that never comes.
constexpr auto patience = std::chrono::seconds(10);
constexpr std::string_view programMark = "veltry-python3=";
constexpr std::string_view versionMark = "veltry-version=";

/// A profile may print whatever it likes before, so that the answers stand in marked lines of their own.
constexpr const char* question =
    "printf '\\nveltry-python3=%s\\n' \"$(command -v python3)\"\n"
    "python3 -c 'import sys; print(\"veltry-version=%d.%d\" % sys.version_info[:2])' 2>/dev/null";

/// What follows the mark in the last line that begins with it; empty if there is none.
std::string marked(std::string_view output, std::string_view mark)
{
    std::string value;
    for (const std::string_view line : text::split(output, '\n'))
        if (line.starts_with(mark))
            value = line.substr(mark.size());
    return value;
}

const std::string* member(const JSONValue& document, std::string_view key)
{
    const JSONValue* value = document.find(key);
    return value ? value->string() : nullptr;
}

} // namespace

std::filesystem::path LoginPython::file(const std::filesystem::path& settings)
{
    return settings.parent_path() / "login-shell.json";
}

std::optional<LoginPython> LoginPython::read(const std::filesystem::path& file)
{
    const std::optional<std::string> contents = Files::readIfPossible(file);
    const std::optional<JSONValue> document = contents ? JSONValue::parseIfValid(*contents) : std::nullopt;
    if (!document)
        return std::nullopt;
    const std::string* shell = member(*document, "shell");
    const std::string* asked = member(*document, "asked");
    const std::optional<Date> date = asked ? Date::parseISO8601(*asked) : std::nullopt;
    if (!shell || !date)
        return std::nullopt;
    LoginPython python{.shell = *shell, .program = {}, .version = {}, .asked = *date};
    if (const std::string* program = member(*document, "python3"))
        python.program = *program;
    if (const std::string* version = member(*document, "version"))
        python.version = *version;
    return python;
}

void LoginPython::write(const std::filesystem::path& file) const
{
    JSONValue::Object document{{"shell", shell.string()}, {"asked", asked.iso8601()}};
    if (program) {
        document.emplace("python3", program->string());
        document.emplace("version", version);
    }
    Files::createPrivateFolders(file.parent_path());
    Files::writeAtomically(file, JSONValue(std::move(document)).prettyText() + "\n");
}

std::optional<LoginPython> LoginPython::ask(const std::filesystem::path& shell)
try {
    const std::optional<ChildProcess::Output> answer = ChildProcess::runWithin(
        patience, {.executable = shell,
                   .arguments = {"-l", "-c", question},
                   .environment = ProcessFacts::environment(),
                   // Version managers choose by the current folder, in which no run starts.
                   .directory = "/"});
    // A profile may end the shell before it comes to the question.
    if (!answer || !answer->output.contains(programMark))
        return std::nullopt;
    LoginPython python{.shell = shell, .program = {}, .version = {}, .asked = Date::now()};
    const std::string program = marked(answer->output, programMark);
    if (program.starts_with('/')) { // an alias or a function is no program that a script could name
        python.program = program;
        python.version = marked(answer->output, versionMark);
    }
    return python;
} catch (const Error&) { // no such shell: what it would find can't be told
    return std::nullopt;
}

std::optional<LoginPython> LoginPython::kept(
    const std::filesystem::path& file, const std::filesystem::path& shell, std::chrono::seconds age)
{
    const std::optional<LoginPython> before = read(file);
    if (before && before->shell == shell) {
        const double seconds = Date::now().secondsSince2001 - before->asked.secondsSince2001;
        if (seconds >= 0 && seconds < static_cast<double>(age.count())) // one of the future tells nothing of its age
            return before;
    }
    std::optional<LoginPython> now = ask(shell);
    if (!now)
        return before;
    try {
        now->write(file);
    } catch (const Error&) { // the answer serves this once
    }
    return now;
}

} // namespace veltry
