#include "Platform/Files.h"
#include "Platform/SystemError.h"
#include "Projects/FolderListing.h"
#include "Projects/NewProjectFolder.h"
#include "Support/TemporaryFolder.h"

#include <gmock/gmock.h>

#include <fstream>

namespace veltry {
namespace {

using test::TemporaryFolder;
using testing::ElementsAre;

/// Folders with a slash behind the name.
std::vector<std::string> listed(const std::filesystem::path& folder)
{
    std::vector<std::string> names;
    for (const FolderEntry& entry : FolderListing::entries(folder))
        names.push_back(entry.name() + (entry.isDirectory ? "/" : ""));
    return names;
}

TEST(FolderListing, ListsFoldersFirstAndNamesAsPeopleSortThem)
{
    const TemporaryFolder folder;
    for (const char* name : {"b", ".git", ".veltry", "Zoo", "link target"})
        Files::createFolders(folder / name);
    for (const char* name : {"file10", "file2", "File3", "ä", "z", "B", "a", ".hidden", ".DS_Store", "file 1", "x\xFF"})
        std::ofstream(folder / name) << name;
    std::filesystem::create_symlink("link target", folder / "a link");
    std::filesystem::create_symlink("file2", folder / "c link");
    std::filesystem::create_symlink("nowhere", folder / "broken");
    EXPECT_THAT(
        listed(folder.path()), ElementsAre(
                                   "a link/", "b/", "link target/", "Zoo/", ".hidden", "a", "ä", "B", "broken",
                                   "c link", "file 1", "file2", "File3", "file10", "x\xFF", "z"));
    EXPECT_EQ(FolderListing::entries(folder.path()).front().path, folder / "a link");
    EXPECT_THROW(static_cast<void>(FolderListing::entries(folder / "nowhere")), SystemError);
    EXPECT_THROW(static_cast<void>(FolderListing::entries(folder / "a")), SystemError);
}

TEST(NewProjectFolder, IsNamedAfterTheTitleAndNeverTaken)
{
    const TemporaryFolder folder;
    const std::filesystem::path root = folder / "some/root";
    const struct {
        std::string_view title, name;
    } cases[] = {
        {"a/b: c", "a-b- c"},
        {"...", "Untitled"},
        {"", "Untitled 2"},
        {" \n. .\t", "Untitled 3"},
        {"Results", "Results"},
        {"Results", "Results 2"},
        {"\u00A0.Results. ", "Results 3"},
        {"..", "Untitled 4"},
        {"/", "-"},
        {"a.b", "a.b"},
        {std::string_view("a\0b", 3), "a-b"},
    };
    for (const auto& c : cases) {
        const std::filesystem::path made = NewProjectFolder::make(c.title, root);
        EXPECT_EQ(made, root / c.name) << c.title;
        EXPECT_TRUE(std::filesystem::is_empty(made));
    }
    std::ofstream(root / "File") << "";
    EXPECT_EQ(NewProjectFolder::make("File", root), root / "File 2");
    EXPECT_THROW(static_cast<void>(NewProjectFolder::make("x", root / "File")), SystemError);
    EXPECT_THROW(static_cast<void>(NewProjectFolder::make(std::string(300, 'x'), root)), SystemError);
}

} // namespace
} // namespace veltry
