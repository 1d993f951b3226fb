#include "Host/Views/DiskUse.h"
#include "Platform/Files.h"
#include "Support/HostLab.h"

#include <gmock/gmock.h>

namespace veltry {
namespace {

namespace fs = std::filesystem;
using testing::HasSubstr;

/// What lies below a folder, without folders that hold something.
std::vector<std::string> below(const fs::path& folder)
{
    std::vector<std::string> names;
    for (const fs::directory_entry& entry : fs::recursive_directory_iterator(folder))
        if (entry.is_symlink() || !entry.is_directory() || fs::is_empty(entry))
            names.push_back(entry.path().lexically_relative(folder).string());
    std::ranges::sort(names);
    return names;
}

TEST(Disk, GivesBackOnlyWhatGitHasByteForByte)
{
    const test::HostLab lab;
    const Experiment node = lab.baseline(
        "mkdir out; echo weights > out/best.pt; echo mine > edited.txt; chmod +x mode.sh; ln -sf /else link2; "
        "rm -r moved; mkdir $HOME/outside; cp deep/in/a.txt $HOME/outside/x.txt; ln -s $HOME/outside moved; mkdir "
        "empty; "
        "mkdir -p \"$OWN/cache\"; echo big > \"$OWN/cache/model.bin\"");
    const fs::path worktree = lab.lab.worktree(node);
    for (const char* folder : {"deep/in", "moved"})
        Files::createFolders(worktree / folder);
    const std::pair<const char*, const char*> files[] = {
        {".gitignore", "cache\n"},   {"edited.txt", "as committed\n"}, {"mode.sh", "true\n"},
        {"deep/in/a.txt", "same\n"}, {"moved/x.txt", "same\n"},        {" odd \"name\"\n\\.txt", "odd\n"},
        {"\xC3\xA9.txt", ""},
    };
    for (const auto& [name, contents] : files)
        lab.write(node, name, contents);
    fs::create_symlink("deep/in/a.txt", worktree / "link1");
    fs::create_symlink("deep/in/a.txt", worktree / "link2");
    ::setenv("OWN", worktree.c_str(), 1); // a run that writes into an ignored folder of its worktree
    ::setenv("HOME", (lab / "").c_str(), 1);
    const veltry::Run run = lab.finished(lab.lab.launch(node.id, 0).id);
    ASSERT_EQ(run.exitCode, 0) << Files::read(run.log());
    const std::vector<std::string> own = {"edited.txt", "empty", "link2", "mode.sh", "moved", "out/best.pt"};
    const std::vector<std::string> before = below(run.source());
    const std::string log = Files::read(run.log());

    const ChildProcess::Output unasked = lab.veltry({"disk", "--free"});
    EXPECT_EQ(unasked.exitNumber, 0);
    EXPECT_THAT(unasked.error, HasSubstr("Nothing was removed."));
    EXPECT_THAT(unasked.output, HasSubstr("out/best.pt"));
    EXPECT_EQ(below(run.source()), before);
    EXPECT_EQ(lab.veltry({"disk", "--free", "--yes"}).exitNumber, 0);

    EXPECT_EQ(below(run.source()), own);
    EXPECT_EQ(Files::read(run.source() / "out/best.pt"), "weights\n");
    EXPECT_EQ(Files::read(worktree / "cache/model.bin"), "big\n");
    EXPECT_TRUE(Files::exists(worktree / "deep/in/a.txt"));
    EXPECT_EQ(Files::read(lab / "outside/x.txt"), "same\n");
    EXPECT_EQ(Files::read(run.log()), log);
    EXPECT_THAT(lab.veltry({"disk", "--free", "--yes"}).error, HasSubstr("There is nothing to free."));
}

TEST(Disk, WeighsAndLeavesRunsInFlightAndLostCommitsAlone)
{
    const test::HostLab lab;
    const Experiment node = lab.baseline("sleep 100");
    const veltry::Run running = lab.lab.launch(node.id, 0);
    Files::createFolders(running.source() / "more");
    Files::writeAtomically(running.source() / "more/model.bin", std::string(1'000'000, 'x'));
    std::filesystem::create_hard_link(running.source() / "more/model.bin", running.source() / "best.bin");
    Files::writeAtomically(running.directory / "src-like", std::string(400'000, 'x'));
    const JSONValue use = lab.json({"disk", "--all"});
    const JSONValue& weights = use.find("projects")->array()->front();
    EXPECT_THAT(*weights.find("snapshots")->number(), testing::AllOf(testing::Ge(1'000'000), testing::Lt(1'200'000)));
    EXPECT_THAT(*weights.find("records")->number(), testing::AllOf(testing::Ge(400'000), testing::Lt(600'000)));
    EXPECT_GT(*weights.find("worktrees")->number(), 0);
    const std::vector<std::string> before = below(running.source());
    EXPECT_THAT(lab.veltry({"disk", "--free", "--yes"}).error, HasSubstr("There is nothing to free."));
    EXPECT_EQ(below(running.source()), before);
    const veltry::Run lost = lab.insertFinished(node);
    Files::createFolders(lost.source());
    Files::writeAtomically(lost.source() / "README.md", "x");
    const ChildProcess::Output said = lab.veltry({"disk", "--free", "--yes"});
    EXPECT_TRUE(Files::exists(lost.source() / "README.md"));
}

} // namespace
} // namespace veltry
