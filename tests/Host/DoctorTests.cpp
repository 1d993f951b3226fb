#include "Host/Doctor/MachineFindings.h"
#include "Host/Doctor/StoreFindings.h"
#include "Platform/FileSystemFacts.h"
#include "Platform/Files.h"
#include "Projects/Database.h"
#include "Support/HostLab.h"
#include "Support/PseudoTerminal.h"

#include <gmock/gmock.h>

namespace veltry {
namespace {

using Level = Finding::Level;
using testing::AllOf;
using testing::Field;
using testing::HasSubstr;
using testing::Not;
using testing::ResultOf;

constexpr std::uint64_t gibibyte = std::uint64_t{1} << 30U;
constexpr std::uint64_t gigabyte = 1'000'000'000;

TEST(Findings, MeasureTheMachine)
{
    const struct {
        std::int64_t maxRuns;
        MachineFindings::Capacity capacity;
        Level level;
        std::string text;
    } cases[] = {
        {2, {.cores = 2, .memory = 4 * gibibyte, .gpus = 0}, Level::good, "2 at once, on 2 cores and 4 GiB"},
        {3, {.cores = 2, .memory = 4 * gibibyte, .gpus = 0}, Level::advice, "more than the cores"},
        {2, {.cores = 8, .memory = gibibyte, .gpus = 0}, Level::advice, "less than 1 GiB"},
        {2, {.cores = 8, .memory = 64 * gibibyte, .gpus = 1}, Level::advice, "share 1 GPU"},
        {2, {.cores = 8, .memory = 64 * gibibyte, .gpus = 2}, Level::good, "2 at once"},
        {0, {.cores = 8, .memory = 64 * gibibyte, .gpus = 2}, Level::advice, "no limit"},
    };
    for (const auto& c : cases) {
        const Finding finding = MachineFindings::fit(c.capacity, c.maxRuns).back();
        EXPECT_EQ(finding.level, c.level) << finding.text;
        EXPECT_THAT(finding.text, HasSubstr(c.text));
        EXPECT_EQ(finding.advice.empty(), c.level == Level::good);
    }
    EXPECT_EQ(StoreFindings::freeDisk(10 * gigabyte).level, Level::good);
    EXPECT_EQ(StoreFindings::freeDisk(10 * gigabyte - 1).level, Level::advice);
    EXPECT_EQ(StoreFindings::freeDisk(gigabyte - 1).level, Level::wrong);
    for (const char* type : {"nfs", "nfs4", "cifs", "fuse.sshfs", "9p"})
        EXPECT_TRUE(FileSystemFacts::isNetworkType(type)) << type;
    for (const char* type : {"", "ext4", "tmpfs", "fuse.gvfsd-fuse", "overlay"})
        EXPECT_FALSE(FileSystemFacts::isNetworkType(type)) << type;
    const auto here = FileSystemFacts::of("/proc/no/such/file");
    ASSERT_TRUE(here);
    EXPECT_EQ(here->type, "proc");
}

class DoctorTest : public testing::Test {
protected:
    /// The findings on that subject, joined.
    std::string told(const std::vector<std::string>& arguments, std::string_view subject)
    {
        std::vector<std::string> line = {"doctor", "--json"};
        line.insert(line.end(), arguments.begin(), arguments.end());
        said_ = lab_.veltry(line);
        const JSONValue document = JSONValue::parseIfValid(said_.output).value_or(JSONValue::object({}));
        if (!document.find("findings"))
            throw std::runtime_error("doctor --json told no findings: " + said_.error);
        std::string text;
        for (const JSONValue& finding : *document.find("findings")->array())
            if (*finding.find("subject")->string() == subject)
                text += *finding.find("level")->string() + ": " + *finding.find("text")->string() + "\n";
        return text;
    }

    void settings(std::string_view text) const
    {
        Files::createFolders(lab_ / "data/Harrowick Veltry");
        Files::writeAtomically(lab_ / "data/Harrowick Veltry/settings.toml", text);
    }

    test::HostLab lab_;
    ChildProcess::Output said_;
};

TEST_F(DoctorTest, FindsNothingWrongAndPrintsTheBlockOfTheProject)
{
    EXPECT_EQ(told({}, "store"), "good: " + lab_.database().string() + "\n");
    EXPECT_EQ(said_.exitNumber, 0) << said_.error;
    EXPECT_THAT(said_.output, Not(HasSubstr("mcpServers"))); // init wasn't called here
    EXPECT_EQ(lab_.veltry({"init"}).exitNumber, 0);
    const ChildProcess::Output eyes = lab_.veltry({"doctor"});
    EXPECT_EQ(eyes.exitNumber, 0);
    EXPECT_THAT(eyes.output, HasSubstr("\xE2\x9C\x93 git "));
    const std::string block = eyes.output.substr(eyes.output.find("project:\n{") + 9);
    EXPECT_EQ(JSONValue::parse(block), *lab_.json({"doctor"}).find("clientConfiguration"));
    EXPECT_EQ(block, lab_.veltry({"init"}).output);
}

TEST_F(DoctorTest, TellsWhatIsWrongWithSettingsAndProjects)
{
    settings("[experiments]\nmax_runs = \"x\"\ncolour = 1\n");
    EXPECT_EQ(
        told({}, "settings"), "advice: experiments.colour is not a setting.\nadvice: experiments.max_runs must be a "
                              "whole number, 0 or more.\n");
    EXPECT_EQ(said_.exitNumber, 0);
    settings("# \xFF\n");
    EXPECT_THAT(told({}, "settings"), HasSubstr("isn't UTF-8 text"));
    settings("x = = 1\n");
    EXPECT_THAT(told({}, "settings"), HasSubstr("wrong: "));
    EXPECT_THAT(said_.error, HasSubstr("veltry: 1 thing is wrong.\n"));
    EXPECT_EQ(said_.exitNumber, 1);
    lab_.store->createProject("Moved", {lab_ / "gone"});
    EXPECT_THAT(told({}, "Moved"), HasSubstr("advice: Its folder "));
}

TEST_F(DoctorTest, TellsADamagedStoreFromANewerAndABusyOne)
{
    const auto path = [&](const char* name) { return lab_ / name; };
    Files::writeAtomically(path("damaged"), std::string(5000, 'x'));
    {
        Database newer(path("newer"));
        newer.write([](Connection& connection) {
            connection.execute("CREATE TABLE grdb_migrations (identifier TEXT NOT NULL PRIMARY KEY);"
                               "INSERT INTO grdb_migrations VALUES ('of tomorrow')");
        });
        static_cast<void>(ProjectStore(path("ill")));
        Connection ill(path("ill"), std::chrono::seconds(1));
        ill.execute("PRAGMA foreign_keys = OFF");
        ill.execute("INSERT INTO project_folder (project_id, path, position) VALUES ('nobody', '/x', 0)");
    }
    const struct {
        const char* name;
        std::string text;
        bool isWrong;
    } cases[] = {
        {"damaged", " is damaged: file is not a database.", true},
        {"newer", " was made by a newer Veltry.", true},
        {"ill", " isn't whole: a row of project_folder refers to a row of project that isn't there.", true},
        {"absent", "", false},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        const std::string before = Files::readIfPossible(path(c.name)).value_or("");
        const std::string text = told({"--db", path(c.name).string()}, "store");
        EXPECT_THAT(
            text, c.isWrong ? HasSubstr("wrong: " + path(c.name).string() + c.text) : HasSubstr("There is none"));
        EXPECT_EQ(said_.exitNumber, c.isWrong ? 1 : 0);
        EXPECT_EQ(Files::readIfPossible(path(c.name)).value_or(""), before);
    }
    EXPECT_FALSE(Files::exists(path("absent")));
}

TEST_F(DoctorTest, NoCommandWritesToAnotherProgramsDatabase)
{
    const std::filesystem::path other = lab_ / "other";
    Database(other).withConnection([](Connection& connection) { connection.execute("CREATE TABLE theirs (x)"); });
    const std::string before = Files::read(other);
    for (const char* command : {"tree", "projects", "doctor"})
        EXPECT_THAT(
            lab_.veltry({command, "--json", "--db", other.string()}), // which breaks no lines
            AllOf(
                Field(&ChildProcess::Output::exitNumber, 1),
                ResultOf(
                    [](const ChildProcess::Output& said) { return said.output + said.error; },
                    HasSubstr("is another program's database: it has tables, and none of"))))
            << command;
    EXPECT_TRUE(Files::read(other) == before);
}

TEST_F(DoctorTest, SetsAsideOnlyADamagedStoreAndOnlyWhenTold)
{
    const std::string damaged = (lab_ / "damaged").string();
    const std::string bytes(5000, 'x');
    Files::writeAtomically(damaged, bytes);
    EXPECT_EQ(lab_.veltry({"doctor", "--db", damaged}).exitNumber, 1); // nobody sits there to be asked
    test::PseudoTerminal no(
        test::hostProgram(), {"doctor", "--db", damaged}, lab_.environment(), lab_.repository.path());
    EXPECT_TRUE(no.shows("Set the damaged store aside and begin with an empty one? [y/N] ")) << no.output();
    no.type("\n");
    EXPECT_EQ(no.wait(), 1);
    EXPECT_EQ(Files::read(damaged), bytes);
    const ChildProcess::Output said = lab_.veltry({"doctor", "--set-aside", "--db", damaged});
    EXPECT_EQ(said.exitNumber, 0) << said.error;
    EXPECT_THAT(said.error, HasSubstr("The damaged store lies at " + damaged + ".unreadable-"));
    EXPECT_TRUE(ProjectStore(damaged).projects().empty());
    EXPECT_EQ(lab_.veltry({"doctor", "--set-aside"}).exitNumber, 0);
    EXPECT_EQ(lab_.store->projects().size(), 1u);
}

} // namespace
} // namespace veltry
