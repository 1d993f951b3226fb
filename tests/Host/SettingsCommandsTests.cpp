#include "Config/VeltrySettings.h"
#include "Platform/Files.h"
#include "Support/McpProcess.h"
#include "Support/TemporaryFolder.h"

#include <gmock/gmock.h>

namespace veltry {
namespace {

using testing::HasSubstr;

class SettingsCommandsTest : public testing::Test {
protected:
    ChildProcess::Output settings(std::vector<std::string> arguments) const
    {
        arguments.insert(arguments.begin(), "settings");
        return test::runProgram(
            test::hostProgram(), arguments, {{"VELTRY_SETTINGS_PATH", file_.string()}, {"LC_ALL", "C.UTF-8"}});
    }

    const test::TemporaryFolder folder_;
    const std::filesystem::path file_ = folder_ / "some/settings.toml";
};

TEST_F(SettingsCommandsTest, SetsGetsAndListsWithoutAFileAtFirst)
{
    EXPECT_EQ(settings({"get", "max_runs"}).output, "2\n");
    EXPECT_THAT(settings({"check"}).error, HasSubstr("every setting has its default"));
    EXPECT_EQ(settings({"set", "experiments.max_runs", "4"}).exitNumber, 0);
    EXPECT_EQ(settings({"set", "agents.default", "A \"B\" \\ é # c"}).exitNumber, 0);
    EXPECT_EQ(settings({"get", "agents.default"}).output, "A \"B\" \\ é # c\n");
    VeltrySettings wanted;
    wanted.maxRuns = 4;
    wanted.defaultAgent = "A \"B\" \\ é # c";
    EXPECT_EQ(Files::read(file_), VeltrySettings::templateText(wanted));
    const JSONValue all = JSONValue::parse(settings({"--json"}).output);
    EXPECT_EQ(*all.find("experiments.max_runs")->number(), 4);
    EXPECT_EQ(*all.find("composer.send")->string(), "enter");
    EXPECT_THAT(settings({}).output, HasSubstr("\nexperiments.max_runs        4"));
    EXPECT_EQ(settings({"path"}).output, file_.string() + "\n");
    EXPECT_EQ(settings({"check"}).exitNumber, 0);
}

TEST_F(SettingsCommandsTest, RefusesValuesThatTheTableDoesNotKnow)
{
    const struct {
        std::vector<std::string> arguments;
        int status;
        std::string error;
    } cases[] = {
        {{"set", "theme", "blue"},
         2,
         "veltry: appearance.theme must be \"system\", \"light\" or \"dark\", not \"blue\".\n"},
        {{"set", "max_runs", "1.5"},
         2,
         "veltry: experiments.max_runs must be a whole number from 0 to 9999, not \"1.5\".\n"},
        {{"set", "max_runs", "10000"},
         2,
         "veltry: experiments.max_runs must be a whole number from 0 to 9999, not \"10000\".\n"},
        {{"set", "turns", "yes"}, 2, "veltry: notifications.turns must be true or false, not \"yes\".\n"},
        {{"set", "sound", ""}, 2, "veltry: notifications.sound must be a name in quotes, not \"\".\n"},
        {{"set", "sound", "a\nb"}, 2, "veltry: notifications.sound must be on one line, without control characters.\n"},
        {{"get", "experiment.max_runs"},
         1,
         "veltry: There is no setting experiment.max_runs. Did you mean experiments.max_runs? veltry settings lists "
         "them.\n"},
    };
    for (const auto& c : cases) {
        const ChildProcess::Output output = settings(c.arguments);
        EXPECT_EQ(output.exitNumber, c.status);
        EXPECT_EQ(output.error, c.error);
    }
    EXPECT_FALSE(Files::exists(file_));
}

TEST_F(SettingsCommandsTest, NamesTheLineThatStandsInTheWay)
{
    Files::createFolders(file_.parent_path());
    const std::string text = "# mine\n\n[[experiments]]\nname = \"x\"\n";
    Files::writeAtomically(file_, text);
    const ChildProcess::Output refused = settings({"set", "max_runs", "4"});
    EXPECT_EQ(refused.exitNumber, 1);
    EXPECT_THAT(refused.error, HasSubstr("while line 3 reads \"[[experiments]]\""));
    EXPECT_EQ(Files::read(file_), text);
    EXPECT_EQ(settings({"check"}).output, "experiments must be a [table]\n");
    EXPECT_EQ(settings({"check"}).exitNumber, 1);

    Files::writeAtomically(file_, "[experiments\n");
    const ChildProcess::Output written = settings({"set", "theme", "dark"});
    EXPECT_EQ(written.exitNumber, 0);
    EXPECT_THAT(written.error, HasSubstr("can't be read, so every setting has its default: expected ] on line 1"));
    EXPECT_THAT(written.error, HasSubstr("every setting has its default until that line is mended"));
    EXPECT_THAT(written.error, testing::Not(HasSubstr("is dark now")));
    EXPECT_EQ(Files::read(file_), "[experiments\n\n[appearance]\ntheme = \"dark\"\n");
    EXPECT_EQ(settings({"check"}).exitNumber, 1);
}

} // namespace
} // namespace veltry
