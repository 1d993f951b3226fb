#include "Experiments/Computer.h"
#include "Platform/Files.h"
#include "Support/TemporaryFolder.h"

#include <gmock/gmock.h>

namespace veltry {
namespace {

using GPUFacts::Card;
using testing::HasSubstr;
using testing::Not;

constexpr std::uint64_t gigabyte = 1ULL << 30;

Computer server()
{
    const Card card{.name = "NVIDIA H100 80GB HBM3", .memory = 80 * gigabyte, .isInUse = false};
    Card busy = card;
    busy.isInUse = true;
    return {
        .system = "Debian GNU/Linux 12, Linux 6.1, x86-64",
        .model = "PowerEdge",
        .chip = "AMD EPYC 9B14",
        .cores = 8,
        .threads = 16,
        .usableThreads = 4,
        .gpus = GPUFacts::Cards{.cards = {card, busy}, .driver = "550.54", .cuda = "12.4"},
        .memory = 128 * gigabyte,
        .availableMemory = 96 * gigabyte,
        .memoryLimit = 64 * gigabyte,
        .freeDisk = 240'000'000'000,
        .maxRuns = 2,
        .shell = "/bin/zsh",
        .python = LoginPython{.shell = "/bin/zsh", .program = "/home/me/.venv/bin/python3", .version = "3.11"},
    };
}

TEST(Computer, IsDescribedForAnAgent)
{
    EXPECT_EQ(
        server().description(),
        "This computer (where these instructions say \"Mac\", this one is meant)\n"
        "- System: Debian GNU/Linux 12, Linux 6.1, x86-64\n"
        "- Computer: PowerEdge; CPU: AMD EPYC 9B14, 8 cores, 16 threads (this process may use 4 of them)\n"
        "- GPU: 2 × NVIDIA H100 80GB HBM3, 80 GB each, driver 550.54, CUDA 12.4; PyTorch calls them `cuda:0` and "
        "`cuda:1`. 1 is in use.\n"
        "- Memory: 128 GB, 96 GB free, shared with everything else running here (this process may use 64 GB)\n"
        "- Disk: 240 GB free where runs are written\n"
        "- Runs: at most 2 at once. They start in a login zsh; `python3` there is /home/me/.venv/bin/python3 (3.11).");

    Computer bare = server();
    bare.model = bare.chip = std::nullopt;
    bare.usableThreads = 16;
    bare.gpus = GPUFacts::Cards();
    bare.availableMemory = bare.memoryLimit = bare.freeDisk = std::nullopt;
    bare.memory = 3 * gigabyte / 2;
    bare.maxRuns = 0;
    bare.python->program.reset();
    EXPECT_EQ(
        bare.description(),
        "This computer (where these instructions say \"Mac\", this one is meant)\n"
        "- System: Debian GNU/Linux 12, Linux 6.1, x86-64\n"
        "- CPU: 8 cores, 16 threads\n"
        "- GPU: None found. Train on the processor.\n"
        "- Memory: 1.5 GB, shared with everything else running here\n"
        "- Runs: as many at once as you start. They start in a login zsh; there is no `python3` in it.");
}

TEST(Computer, NamesCardsOnlyAsTheyAreCalled)
{
    const Card big{.name = "Big", .memory = 80 * gigabyte, .isInUse = true};
    const Card small{.name = "Small", .memory = 16 * gigabyte, .isInUse = false};
    const Card quiet{.name = "Quiet", .memory = 0, .isInUse = {}};
    const struct {
        const char* name;
        std::vector<Card> cards;
        const char* visible;
        const char* line;
    } cases[] = {
        {"one", {big}, "", "- GPU: Big, 80 GB; PyTorch calls it `cuda:0`. It is in use.\n"},
        {"eight", std::vector(8, small), "",
         "- GPU: 8 × Small, 16 GB each; PyTorch calls them `cuda:0` to `cuda:7`. None is in use.\n"},
        {"of two kinds", {big, small, big}, "", "- GPU: 2 × Big, 80 GB each; Small, 16 GB. 2 are in use.\n"},
        {"of many kinds", {big, small, quiet, quiet}, "", "- GPU: Big, 80 GB; Small, 16 GB; 2 more.\n"},
        {"that tells nothing", {quiet}, "", "- GPU: Quiet; PyTorch calls it `cuda:0`.\n"},
        {"some hidden", {big, big}, "1", "- GPU: 2 × Big, 80 GB each; CUDA_VISIBLE_DEVICES is 1. 2 are in use.\n"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        Computer computer = server();
        computer.gpus = GPUFacts::Cards{.cards = c.cards, .driver = "", .cuda = ""};
        computer.visibleGPUs = c.visible;
        EXPECT_THAT(computer.description(), HasSubstr(c.line));
    }
    Computer late = server();
    late.gpus.reset();
    EXPECT_THAT(late.description(), Not(HasSubstr("GPU")));
}

TEST(Computer, KeepsToItsBoundHoweverLongTheNames)
{
    Computer computer = server();
    const std::string name(500, 'x');
    computer.system = *(computer.model = computer.chip = name);
    computer.gpus->cards[0].name = name + "\nand more";
    computer.gpus->driver = computer.visibleGPUs = name;
    computer.shell = computer.python->shell = "/" + name;
    computer.python->program = "/" + name;
    EXPECT_LE(computer.description().size(), Computer::longestDescription);
    EXPECT_THAT(computer.description(), Not(HasSubstr("python3"))) << "half a path is none";
    const Computer here = Computer::current("/", 2, {});
    EXPECT_LE(here.description().size(), Computer::longestDescription);
    EXPECT_GT(here.cores, 0);
    EXPECT_GT(here.usableThreads, 0);
    EXPECT_GT(here.availableMemory.value_or(0), 0u);
}

TEST(LoginPython, IsWhatTheShellFindsAndIsKept)
{
    const test::TemporaryFolder folder;
    const auto shell = [&](std::string_view body) {
        Files::writeAtomically(folder / "shell", body);
        std::filesystem::permissions(folder / "shell", std::filesystem::perms::owner_all);
        return folder / "shell";
    };
    Files::writeAtomically(folder / "python3", "#!/bin/sh\necho veltry-version=3.99\n");
    std::filesystem::permissions(folder / "python3", std::filesystem::perms::owner_all);
    const std::string path = "PATH=" + folder.path().string() + ":/usr/bin:/bin\n";

    const auto found = LoginPython::ask(shell("#!/bin/sh\necho a banner; " + path + "eval \"$3\"\n"));
    ASSERT_TRUE(found);
    EXPECT_EQ(found->program, folder / "python3");
    EXPECT_EQ(found->version, "3.99");
    const auto alias = LoginPython::ask(shell("#!/bin/sh\npython3() { :; }\neval \"$3\"\n"));
    EXPECT_TRUE(alias && !alias->program) << "no program that a script could name";
    EXPECT_FALSE(LoginPython::ask(shell("#!/bin/sh\nexit 1\n")));
    EXPECT_FALSE(LoginPython::ask(folder / "missing"));

    const std::filesystem::path file = LoginPython::file(folder / "made/settings.toml");
    EXPECT_FALSE(LoginPython::read(file));
    found->write(file);
    EXPECT_EQ(LoginPython::read(file)->program, found->program);
    EXPECT_EQ(LoginPython::read(file)->version, found->version);
    const auto day = std::chrono::hours(24);
    EXPECT_EQ(LoginPython::kept(file, found->shell, day)->version, "3.99") << "without asking the shell of now";
    EXPECT_EQ(LoginPython::kept(file, found->shell, std::chrono::seconds(0))->version, "3.99")
        << "the shell doesn't answer any more";
    Files::writeAtomically(file, "{\"shell\": 7}");
    EXPECT_FALSE(LoginPython::read(file));
}

} // namespace
} // namespace veltry
