#include "ACP/ACPClient/ProjectFiles.h"
#include "ACP/JSONRPCConnection/JSONRPCError.h"
#include "Platform/Files.h"
#include "Support/TemporaryFolder.h"

#include <gtest/gtest.h>

#include <limits>

namespace veltry {
namespace {

TEST(ProjectFiles, TakesTheLinesAskedFor)
{
    constexpr std::int64_t least = std::numeric_limits<std::int64_t>::min();
    constexpr std::int64_t most = std::numeric_limits<std::int64_t>::max();
    const struct {
        std::string_view text;
        std::optional<std::int64_t> line, limit;
        std::string_view excerpt;
    } cases[] = {
        {"1\n2\n3", {}, {}, "1\n2\n3"},
        {"1\n2\n3\n", {}, {}, "1\n2\n3\n"},
        {"1\n2\n3", 2, 1, "2"},
        {"1\n2\n3", 0, 1, "1"},
        {"1\n2\n3", -5, {}, "1\n2\n3"},
        {"1\n2\n3", 4, {}, ""},
        {"1\n2\n", 3, {}, ""},
        {"1\n2\n", 1, 2, "1\n2"},
        {"\n\nx", 1, 2, "\n"},
        {"1\r\n2", 1, 1, "1\r"},
        {"1", 1, 0, ""},
        {"", {}, 5, ""},
        {"1\n2", least, most, "1\n2"},
        {"1\n2", most, most, ""},
        {"1\n2", 2, least, ""},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(
            testing::PrintToString(c.text) + " " + testing::PrintToString(c.line) + " " +
            testing::PrintToString(c.limit));
        EXPECT_EQ(ProjectFiles::excerpt(std::string(c.text), c.line, c.limit), c.excerpt);
    }
}

TEST(ProjectFiles, TriesTheAdditionalFoldersFirstAndReportsTheFirstOne)
{
    const test::TemporaryFolder base;
    for (const char* folder : {"cwd", "one", "two"})
        Files::createFolders(base / folder);
    Files::writeAtomically(base / "cwd/file", "cwd");
    Files::writeAtomically(base / "two/file", "two");
    Files::writeAtomically(base / "cwd/bytes", "\xFF");
    const std::filesystem::path roots[] = {base / "cwd", base / "gone", base / "one", base / "two"};
    const std::string at = base.path();

    const struct {
        std::string path, outcome;
    } cases[] = {
        {at + "/cwd/file", "cwd"},
        {at + "/two/file", "two"},
        {"//" + at + "//two/./file", "two"},
        {at + "/cwd/../two/file", "-32602 path is outside the project"},
        {at + "/cwd/..", "-32602 path is outside the project"},
        {at + "/cwd/..file", "-32603 could not open " + at + "/cwd/..file: No such file or directory"},
        {at + "/cwd/.", "-32602 path is outside the project"},
        {at + std::string("/cwd/file\0/x", 12), "-32602 path is outside the project"},
        {at + "/three/file", "-32602 path is outside the project"},
        {"cwd/file", "-32602 path must be absolute"},
        {"", "-32602 path must be absolute"},
        {"/", "-32602 path is outside the project"},
        {at + "/one/file", "-32603 could not open " + at + "/one/file: No such file or directory"},
        {at + "/cwd/bytes", "-32603 could not read " + at + "/cwd/bytes: it is not UTF-8 text"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.path);
        std::string outcome;
        try {
            outcome = ProjectFiles::read(roots, {.sessionId = "s", .path = c.path, .line = {}, .limit = {}});
        } catch (const JSONRPCError& error) {
            outcome = std::to_string(error.code) + " " + error.message;
        }
        EXPECT_EQ(outcome, c.outcome);
    }
}

} // namespace
} // namespace veltry
