#include "Support/PseudoTerminal.h"

#include "Platform/Files.h"
#include "Platform/ProcessFacts.h"
#include "Platform/SystemError.h"

#include <poll.h>
#include <pty.h>
#include <unistd.h>

#include <array>
#include <csignal>

namespace veltry::test {

namespace {

constexpr int patience = 30'000; // milliseconds

std::vector<char*> pointers(std::vector<std::string>& texts)
{
    std::vector<char*> result;
    for (std::string& text : texts)
        result.push_back(text.data());
    result.push_back(nullptr);
    return result;
}

} // namespace

PseudoTerminal::PseudoTerminal(
    const std::filesystem::path& program, const std::vector<std::string>& arguments,
    const ChildProcess::Environment& added, const std::filesystem::path& directory)
{
    std::vector<std::string> words{program.string()};
    words.insert(words.end(), arguments.begin(), arguments.end());
    ChildProcess::Environment environment = ProcessFacts::environment();
    environment.erase("NO_COLOR");
    environment["TERM"] = "xterm-256color";
    environment["LC_ALL"] = "C.UTF-8";
    for (const auto& [name, value] : added)
        environment[name] = value;
    std::vector<std::string> variables;
    for (const auto& [name, value] : environment)
        variables.push_back(name + "=" + value);
    // Made before the fork, after which nothing may ask for memory.
    const std::vector<char*> argv = pointers(words);
    const std::vector<char*> envp = pointers(variables);
    winsize size{.ws_row = 24, .ws_col = 80, .ws_xpixel = 0, .ws_ypixel = 0};
    int master = -1;
    child_ = ::forkpty(&master, nullptr, nullptr, &size);
    if (child_ < 0)
        throw SystemError("could not make a pseudo-terminal");
    if (child_ == 0) {
        if (::chdir(directory.c_str()) == 0)
            ::execve(argv.front(), argv.data(), envp.data());
        ::_exit(127);
    }
    master_.reset(master);
}

PseudoTerminal::~PseudoTerminal()
{
    if (child_ > 0) {
        ::kill(child_, SIGKILL);
        static_cast<void>(ChildProcess::wait(child_));
    }
}

bool PseudoTerminal::read()
{
    pollfd ready{.fd = master_.get(), .events = POLLIN, .revents = 0};
    std::array<char, 4096> bytes{};
    if (::poll(&ready, 1, patience) <= 0)
        return false;
    const ssize_t count = ::read(master_.get(), bytes.data(), bytes.size()); // EIO once nobody has the other side open
    if (count <= 0)
        return false;
    output_.append(bytes.data(), static_cast<std::size_t>(count));
    return true;
}

bool PseudoTerminal::shows(std::string_view text)
{
    while (true) {
        if (const std::size_t found = output_.find(text, seen_); found != std::string::npos) {
            seen_ = found + text.size();
            return true;
        }
        if (!read())
            return false;
    }
}

void PseudoTerminal::type(std::string_view keys)
{
    Files::writeAll(master_, keys, "the terminal");
}

int PseudoTerminal::wait()
{
    while (read()) {
    }
    return ChildProcess::wait(std::exchange(child_, -1));
}

} // namespace veltry::test
