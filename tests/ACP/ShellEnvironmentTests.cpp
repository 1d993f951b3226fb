#include "ACP/ACPClient/ShellEnvironment.h"
#include "Platform/StandardFolders.h"
#include "ScriptedProcesses.h"

#include <asio/detached.hpp>

#include <optional>

namespace veltry {
namespace {

using namespace std::chrono_literals;
using ShellEnvironment::Environment;
using ShellEnvironment::Failure;
using testing::Contains;
using testing::Pair;

struct Outcome {
    std::optional<Environment> environment;
    std::optional<Failure::Kind> failure;
};

/// A home whose profile is the script, for each shell, or a made-up shell that is one.
class ShellEnvironmentTest : public test::ScriptedProcesses {
protected:
    ShellEnvironmentTest() { ShellEnvironment::forget(); }

    Outcome resolve(std::filesystem::path shell, std::chrono::nanoseconds timeout = 15s) const
    {
        Outcome outcome;
        runLeavingNothing([&](const asio::any_io_executor&) -> asio::awaitable<void> {
            try {
                Environment start = environment;
                outcome.environment = co_await ShellEnvironment::resolve(shell, std::move(start), timeout);
            } catch (const Failure& failure) {
                outcome.failure = failure.kind;
            }
        });
        return outcome;
    }

    Environment environment{{"HOME", folder.path()}, {"PATH", "/usr/bin:/bin"}};
};

TEST_F(ShellEnvironmentTest, RealShellsTellTheirEnvironmentWhateverTheirProfilesDo)
{
    const struct {
        const char *shell, *profile;
    } shells[] = {{"/bin/zsh", ".zprofile"}, {"/bin/bash", ".bash_profile"}, {"/bin/dash", ".profile"}};

    const struct {
        const char *name, *script;
        std::optional<std::string> told; ///< of the variable TOLD
        std::optional<Failure::Kind> failure = std::nullopt;
        std::chrono::seconds timeout = 15s;
    } profiles[] = {
        {"prints", "printf 'TOLD=noise\\nA=1\\0B=2\\0'; echo error >&2; export TOLD='a=b\nc'", "a=b\nc"},
        {"meets an error", "nosuchcommand; false; export TOLD=1", "1"},
        {"leaves a child", "sleep 300 & echo $! >> ~/children; export TOLD=1", "1"},
        {"exports a long value", "export TOLD=$(head -c 120000 /dev/zero | tr '\\0' x)", std::string(120'000, 'x')},
        {"has a value of a megabyte",
         "BIG=$(head -c 1000000 /dev/zero | tr '\\0' x); env() { printf 'TOLD=%s\\0' \"$BIG\"; }",
         std::string(1'000'000, 'x')},
        {"ends the shell", "exit 3", std::nullopt, Failure::Kind::unreadable},
        {"hangs", "sh -c 'echo $$ >> ~/children; exec sleep 300'", std::nullopt, Failure::Kind::timedOut, 1s},
    };

    for (const auto& shell : shells) {
        if (!Files::isExecutable(shell.shell))
            continue;
        for (const auto& profile : profiles) {
            SCOPED_TRACE(std::string(shell.shell) + ", whose profile " + profile.name);
            Files::remove(folder / "children");
            ShellEnvironment::forget();
            Files::writeAtomically(folder / shell.profile, profile.script);
            const Outcome outcome = resolve(shell.shell, profile.timeout);
            EXPECT_EQ(outcome.failure, profile.failure);
            if (profile.told) {
                ASSERT_TRUE(outcome.environment);
                EXPECT_EQ(outcome.environment->at("TOLD"), profile.told);
            }
            if (profile.failure)
                expectChildrenToEnd(); // with their shell
            else
                for (const pid_t child : children())
                    EXPECT_EQ(::kill(child, SIGKILL), 0) << "a daemon that a profile starts stays";
        }
        Files::remove(folder / shell.profile);
    }
}

TEST_F(ShellEnvironmentTest, ReadsWhatAnyShellPrints)
{
    const std::string start = "printf '\\0__HARROWICK_VELTRY_ENV__\\0'; ";
    const std::string end = "; printf '__HARROWICK_VELTRY_ENV_END__'";
    const std::string entries = "printf 'A=1\\0B\\0=C\\0D=x=y\\0E=\\377\\0A=2\\0'";
    const Environment read{{"A", "2"}, {"D", "x=y"}, {"E", "\xEF\xBF\xBD"}};
    const struct {
        const char* name;
        std::string script;
        std::optional<Environment> environment;
        std::optional<Failure::Kind> failure = std::nullopt;
        std::chrono::nanoseconds timeout = 15s;
    } cases[] = {
        {"all of it", start + entries + end, read},
        {"no end", start + entries, read},
        {"the last entry not ended", start + "printf A=1", Environment{{"A", "1"}}},
        {"behind its exit", "(sleep 0.1; " + start + entries + end + ") & echo", read},
        {"a marker that isn't alone", "printf 'x__HARROWICK_VELTRY_ENV__\\0'; " + entries + end, std::nullopt,
         Failure::Kind::unreadable},
        {"another syntax", "echo 'Unknown option: -ilc'; exit 2", std::nullopt, Failure::Kind::unreadable},
        {"all of it, and hangs", "echo $$ >> $HOME/children; " + start + entries + end + "; exec sleep 300", read,
         std::nullopt, 1s},
        {"noise without end", "exec yes", std::nullopt, Failure::Kind::timedOut, 1s},
        {"nothing in less than a second", "sleep 300", std::nullopt, Failure::Kind::timedOut, 500ms},
    };

    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        ShellEnvironment::forget();
        const auto begin = std::chrono::steady_clock::now();
        const Outcome outcome = resolve(program("shell", c.script), c.timeout);
        EXPECT_EQ(outcome.environment, c.environment);
        EXPECT_EQ(outcome.failure, c.failure);
        EXPECT_LT(std::chrono::steady_clock::now() - begin, 10s);
        for (const pid_t child : children())
            EXPECT_NE(::kill(child, 0), 0) << "killed when its time was over";
    }
    EXPECT_THROW(resolve(folder / "missing"), ChildProcess::StartFailure);
}

TEST_F(ShellEnvironmentTest, KeepsAnswersForEachShellAndEnvironment)
{
    const auto shell = program(
        "shell", "echo run >> \"$HOME/runs\"; [ -e \"$HOME/broken\" ] && exit 1\n"
                 "printf '\\0__HARROWICK_VELTRY_ENV__\\0'; env -0");
    const auto runs = [&] { return Files::read(folder / "runs").size() / sizeof("run"); };
    Files::writeAtomically(folder / "broken", "");
    EXPECT_EQ(resolve(shell).failure, Failure::Kind::unreadable);
    EXPECT_EQ(resolve(shell).failure, Failure::Kind::unreadable);
    EXPECT_EQ(runs(), 2U) << "a failure isn't kept";
    Files::remove(folder / "broken");

    const Outcome first = resolve(shell);
    EXPECT_EQ(resolve(shell).environment, first.environment);
    EXPECT_EQ(runs(), 3U);
    environment["NEW"] = "1";
    EXPECT_THAT(*resolve(shell).environment, Contains(Pair("NEW", "1")));
    EXPECT_EQ(runs(), 4U);
    ShellEnvironment::forget();
    resolve(shell);
    EXPECT_EQ(runs(), 5U);
}

TEST_F(ShellEnvironmentTest, AShellGoesWithTheExecutorThatWatchesIt)
{
    const auto shell = program("shell", "sleep 300 & echo $! >> $HOME/children; echo $$ >> $HOME/children; wait");
    expectToEndWithTheExecutor(2, [&](const asio::any_io_executor& executor) {
        asio::co_spawn(executor, ShellEnvironment::resolve(shell, environment, 100s), asio::detached);
        return executor;
    });
}

TEST_F(ShellEnvironmentTest, TheFallbackHasAUsablePath)
{
    const std::string ours = StandardFolders::home();
    const struct {
        Environment environment;
        std::string path;
    } cases[] = {
        {{{"HOME", "/h"}, {"PATH", "/p:/q"}}, "/opt/homebrew/bin:/usr/local/bin:/h/.local/bin:/p:/q"},
        {{{"HOME", "/h"}}, "/opt/homebrew/bin:/usr/local/bin:/h/.local/bin:/usr/bin:/bin"},
        {{{"PATH", ""}}, "/opt/homebrew/bin:/usr/local/bin:" + ours + "/.local/bin:/usr/bin:/bin"},
    };
    for (auto c : cases) {
        c.environment["OTHER"] = "stays";
        Environment expected = c.environment;
        expected["PATH"] = c.path;
        EXPECT_EQ(ShellEnvironment::fallback(c.environment), expected);
    }
}

} // namespace
} // namespace veltry
