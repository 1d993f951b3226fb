#include "Platform/Files.h"
#include "Support/HostLab.h"

#include <gmock/gmock.h>

namespace veltry {
namespace {

using testing::StartsWith;

TEST(HostCommand, SaysOfEachCommandLineThatMeansNothingWhatWasMeantPerhaps)
{
    const struct {
        std::vector<std::string> arguments;
        const char* error;
    } cases[] = {
        {{}, "Which command? veltry --help lists them."},
        {{"treee"}, "There is no command treee. Did you mean tree? veltry --help lists them."},
        {{"--json", "tree"},
         "The command comes before its options, and so before --json. veltry --help lists the commands."},
        {{"project"}, "project needs a second word, one of these: rename, add-folder, move, remove."},
        {{"project", "remov"}, "There is no command project remov. Did you mean remove? After project comes"},
        {{"papers", "serch", "x"}, "There is no command papers serch. Did you mean search?"},
        {{"tree", "a", "b"}, "tree doesn't take a b. veltry tree --help tells what it takes."},
        {{"list", "--srot", "x"}, "list has no option --srot. Did you mean --sort? veltry list --help"},
        {{"tree", "--jsn"}, "tree has no option --jsn. Did you mean --json?"},
        {{"cancel"}, "RUN is required. Try veltry cancel --help."},
    };
    for (const auto& c : cases) {
        const ChildProcess::Output output = test::runProgram(test::hostProgram(), c.arguments);
        EXPECT_EQ(output.exitNumber, 2);
        EXPECT_THAT(output.error, StartsWith(std::string("veltry: ") + c.error));
        EXPECT_EQ(output.output, "");
    }
    EXPECT_EQ(test::runProgram(test::hostProgram(), {"--help"}).exitNumber, 0);
    EXPECT_EQ(test::runProgram(test::hostProgram(), {"tree", "--help"}).exitNumber, 0);
}

TEST(HostCommand, TellsWhoseFolderMovedSoWhereverItIsLookedFor)
{
    const test::HostLab lab;
    const std::filesystem::path other = lab / "here now";
    Files::createFolders(other);
    const std::filesystem::path gone = lab / "was here";
    lab.store->createProject("Digits", {gone});
    EXPECT_THAT(
        test::runProgram(test::hostProgram(), {"tree"}, lab.environment(), other).error,
        testing::HasSubstr(
            "The folder of Digits, " + gone.string() + ", is gone; if this is it: veltry project move ."));
    EXPECT_THAT(
        lab.veltry({"agent", "--project", "Digits", "x"}).error,
        testing::HasSubstr("The folder of the project Digits, " + gone.string() + ", is gone. If it was moved: "));
    EXPECT_EQ(lab.veltry({"tree", "--project", "Digits"}).exitNumber, 0) << "the history is there";
    for (const auto& [arguments, error] : {
             std::pair(std::vector<std::string>{"projects", "--db", ""}, "--db is empty. Name a file, or leave"),
             std::pair(std::vector<std::string>{"new", "T", "--in", ""}, "--in is empty. Name a folder, or leave"),
         })
        EXPECT_THAT(lab.veltry(arguments).error, testing::HasSubstr(error));
}

TEST(HostCommand, TellsADamagedStoreFromOneThatCanNotBeReached)
{
    const test::HostLab lab;
    const std::string damaged = (lab / "damaged").string();
    Files::writeAtomically(damaged, std::string(5000, 'x'));
    EXPECT_THAT(
        lab.veltry({"tree", "--db", damaged}).error,
        StartsWith("veltry: The store " + damaged + " is damaged: file is not a database. veltry doctor says more"));
    EXPECT_EQ(Files::read(damaged), std::string(5000, 'x'));
    const std::string folder = lab.repository.path().string();
    EXPECT_THAT(
        lab.veltry({"tree", "--db", folder}).error,
        StartsWith("veltry: The store " + folder + " can't be read or written: "));
}

} // namespace
} // namespace veltry
