#include "Config/VeltrySettings.h"
#include "Platform/Files.h"
#include "Platform/StandardFolders.h"
#include "Support/TemporaryFolder.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <string>
#include <vector>

namespace veltry {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using Key = VeltrySettings::Key;

/// Different from the defaults in every field.
VeltrySettings unusual()
{
    return {
        .send = VeltrySettings::SendKey::commandEnter,
        .notifyTurns = false,
        .notifyRuns = false,
        .sound = R"(C:\a "sound" # 1)",
        .stayAwake = true,
        .theme = VeltrySettings::Theme::dark,
        .transcriptSize = VeltrySettings::TranscriptSize::large,
        .codeFont = "Ménlo",
        .defaultAgent = "Codex",
        .startInAuto = false,
        .passAPIKeys = false,
        .maxRuns = 9999,
        .tree = VeltrySettings::Tree::indented,
        .logAgentTraffic = true,
    };
}

TEST(VeltrySettings, WritesAWholeFileThatReadsBack)
{
    for (const VeltrySettings& settings : {VeltrySettings(), unusual()}) {
        const VeltrySettings::Reading reading = VeltrySettings::read(VeltrySettings::templateText(settings));
        EXPECT_EQ(reading.settings, settings);
        EXPECT_THAT(reading.warnings, IsEmpty());
    }
    const std::string text = VeltrySettings::templateText({});
    EXPECT_TRUE(text.starts_with("# Harrowick Veltry's settings. Veltry reads this file whenever it changes, and\n"
                                 "# writes the line for a setting you change in the app. Your comments stay.\n"
                                 "\n[composer]\n"
                                 "# The keys that send a prompt: \"enter\" (⇧↩ adds a new line) or \"command-enter\".\n"
                                 "send = \"enter\"\n"
                                 "\n[notifications]\n"
                                 "# A notification when an agent finishes a turn while Veltry is in the background.\n"
                                 "turns = true\n"))
        << text;
    EXPECT_TRUE(text.ends_with("tree = \"graph\"\n"
                               "\n[advanced]\n"
                               "# Write every message to and from an agent to the system log.\n"
                               "log_agent_traffic = false\n"))
        << text;
    EXPECT_THAT(text, ::testing::HasSubstr("transcript_size = \"default\"\n"));
}

TEST(VeltrySettings, WarnsOfWhatItPassesOver)
{
    const std::string wholeNumber = "experiments.max_runs must be a whole number, 0 or more";

    const struct {
        std::string text;
        std::vector<std::string> warnings;
    } cases[] = {
        {"", {}},
        {"max_runs = 1", {"max_runs is not a setting"}},
        {"power = 1", {"power must be a [table]"}},
        {"[[power]]\nstay_awake = true", {"power must be a [table]"}},
        {"[power]\nz = 1\n[agents]\nb = 1\na = 1\n[Z]",
         {"Z is not a setting", "agents.a is not a setting", "agents.b is not a setting", "power.z is not a setting"}},
        {"[experiments]\nmax_runs = 1.5", {wholeNumber}},
        {"[experiments]\nmax_runs = -1", {wholeNumber}},
        {"[experiments]\nmax_runs = 10000", {wholeNumber}},
        {"[experiments]\nmax_runs = \"3\"", {wholeNumber}},
        {"[experiments]\ntree = \"tree\"", {"experiments.tree must be \"graph\" or \"indented\"; it is \"tree\""}},
        {"[appearance]\ntheme = \"Dark\"",
         {"appearance.theme must be \"system\", \"light\" or \"dark\"; it is \"Dark\""}},
        {"[appearance]\ntheme = 3", {"appearance.theme must be \"system\", \"light\" or \"dark\""}},
        {"[notifications]\nsound = ''", {"notifications.sound must be a name in quotes"}},
        {"[notifications]\nruns = 'no'", {"notifications.runs must be true or false"}},
    };

    for (const auto& c : cases) {
        SCOPED_TRACE(c.text);
        const VeltrySettings::Reading reading = VeltrySettings::read(c.text);
        EXPECT_EQ(reading.warnings, c.warnings);
        EXPECT_EQ(reading.settings, VeltrySettings());
    }
    const auto partly = VeltrySettings::read("[experiments]\nmax_runs = 3e2\ntree = 1\n[appearance]\ntheme='light'");
    EXPECT_EQ(partly.settings.maxRuns, 300);
    EXPECT_EQ(partly.settings.theme, VeltrySettings::Theme::light);
    EXPECT_THAT(partly.warnings, ElementsAre("experiments.tree must be \"graph\" or \"indented\""));
    EXPECT_THROW(static_cast<void>(VeltrySettings::read("[experiments")), TOML::Failure);
}

TEST(VeltrySettings, LoadsTheDefaultsWhereAFileCannotBeRead)
{
    const test::TemporaryFolder folder;
    const auto file = folder / "settings.toml";
    EXPECT_EQ(VeltrySettings::load(file), VeltrySettings());
    EXPECT_EQ(VeltrySettings::load(folder.path()), VeltrySettings());
    Files::writeAtomically(file, "[experiments]\nmax_runs = 7\n");
    EXPECT_EQ(VeltrySettings::load(file).maxRuns, 7);
    for (const char* end : {"bad = \"\xFF\"\n", "?"}) {
        Files::writeAtomically(file, std::string("[experiments]\nmax_runs = 7\n") + end);
        EXPECT_EQ(VeltrySettings::load(file), VeltrySettings()) << end;
    }
}

TEST(VeltrySettings, ChangesOneLineAndNothingElse)
{
    const struct {
        std::string_view name;
        Key key;
        VeltrySettings::Value value;
        std::string_view before, after;
    } cases[] = {
        {"indentation and comment", Key::maxRuns, 5, "[experiments]\n  max_runs   =   2   # two\n",
         "[experiments]\n  max_runs   = 5 # two\n"},
        {"a # in quotes", Key::sound, "Ping", "[notifications]\nsound = \"a\\\"#\" #b\nruns = true",
         "[notifications]\nsound = \"Ping\" #b\nruns = true"},
        {"a # in single quotes behind a backslash", Key::sound, "P\\\"", "[notifications]\nsound = '\\'# '",
         "[notifications]\nsound = \"P\\\\\\\"\" # '"},
        {"quoted names", Key::stayAwake, true, "[ 'power' ] # p\n\"stay_awake\" = false",
         "[ 'power' ] # p\n\"stay_awake\" = true"},
        {"the same name elsewhere", Key::tree, "indented",
         "tree = 1\n[[experiments]]\ntree = 2\n[other]\ntree = 3\n[experiments]\ntree = 4\n",
         "tree = 1\n[[experiments]]\ntree = 2\n[other]\ntree = 3\n[experiments]\ntree = \"indented\"\n"},
        {"commented out", Key::tree, "graph", "[experiments]\n# tree = 1\nmax_runs = 1\n\n# more\n[x]\n",
         "[experiments]\n# tree = 1\nmax_runs = 1\ntree = \"graph\"\n\n# more\n[x]\n"},
        {"a table without keys", Key::maxRuns, 0, "[experiments]\n# none\n[x]",
         "[experiments]\nmax_runs = 0\n# none\n[x]"},
        {"a header on the last line", Key::maxRuns, 0, "[experiments]", "[experiments]\nmax_runs = 0"},
        {"no table, no line feed", Key::maxRuns, 0, "# mine", "# mine\n\n[experiments]\nmax_runs = 0\n"},
        {"an empty file", Key::passAPIKeys, false, "", "\n[agents]\npass_api_keys = false\n"},
        {"a file that does not parse", Key::maxRuns, 1, "?\n[experiments]\n= 3\nmax_runs : 4\n\xFF",
         "?\n[experiments]\n= 3\nmax_runs = 1\nmax_runs : 4\n\xFF"},
    };

    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        const std::string after = VeltrySettings::setting(c.key, c.value, c.before);
        EXPECT_EQ(after, c.after);
        EXPECT_EQ(VeltrySettings::setting(c.key, c.value, after), after) << "a second time";
    }
}

TEST(VeltrySettings, FindsItsFile)
{
    ::unsetenv("VELTRY_SETTINGS_PATH");
    const auto standard = StandardFolders::applicationSupport() / "Harrowick Veltry" / "settings.toml";
    EXPECT_EQ(VeltrySettings::defaultPath(), standard);
    ::setenv("VELTRY_SETTINGS_PATH", "", 1);
    EXPECT_EQ(VeltrySettings::defaultPath(), standard);
    ::setenv("VELTRY_SETTINGS_PATH", "/tmp/mine.toml", 1);
    EXPECT_EQ(VeltrySettings::defaultPath(), "/tmp/mine.toml");
    ::unsetenv("VELTRY_SETTINGS_PATH");
}

TEST(VeltrySettings, SetsOnlyWhatReadsBack)
{
    const VeltrySettings::Value four = std::int64_t{4};
    const struct {
        std::string_view text;
        std::size_t line; ///< that is in the way; 0 for none
    } cases[] = {
        {"", 0},
        {"[experiments] # c\n  max_runs  =  3 # d\n", 0},
        {"[[other]]\nmax_runs = 1\n", 0},
        {"[experiments]\nx = [1, 2]\n", 0},
        {"\n[[experiments]]\nmax_runs = 3\n", 2},
        {"x = 1\n'experiments' = 2\n", 2},
        {"[experiments]\n# c\nmax_runs = [\n1,\n2]\n", 3},
        {"[experiments]\nx = [\n1]\n[power]\n", 2},
        {"[experiments]\nx = [\n\"a = b\",\n]\n", 3},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.text);
        try {
            const std::string changed = VeltrySettings::settingInReadable(Key::maxRuns, four, c.text);
            EXPECT_EQ(c.line, 0u);
            EXPECT_EQ(changed, VeltrySettings::setting(Key::maxRuns, four, c.text));
        } catch (const VeltrySettings::Refused& refused) {
            EXPECT_EQ(refused.line, c.line);
        }
    }
    EXPECT_THROW(static_cast<void>(VeltrySettings::settingInReadable(Key::maxRuns, four, "x")), TOML::Failure);
}

} // namespace
} // namespace veltry
