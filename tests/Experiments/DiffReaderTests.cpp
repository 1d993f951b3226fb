#include "Experiments/DiffReader.h"

#include <gmock/gmock.h>

namespace veltry {
namespace {

/// A section as its header and the starts, headings and lines of its hunks.
std::string rendered(std::string_view text)
{
    std::string result;
    for (const DiffReader::Section& section : DiffReader(text).read()) {
        result += "[" + section.header + "]";
        for (const Changes::Hunk& hunk : section.hunks) {
            result += "(" + std::to_string(hunk.oldStart) + " " + std::to_string(hunk.newStart) + " " + hunk.heading;
            for (const Changes::Line& line : hunk.lines) {
                result += "|" + (line.oldNumber ? std::to_string(*line.oldNumber) : "") + ",";
                result += (line.newNumber ? std::to_string(*line.newNumber) : "") + " " + line.text;
            }
            result += ")";
        }
    }
    return result;
}

TEST(DiffReader, ReadsSectionsHunksAndLines)
{
    const struct {
        std::string_view name, text, expected;
    } cases[] = {
        {"nothing", "", ""},
        {"no commas, no heading", "diff --git a/x b/x\n@@ -1 +1 @@\n-a\n+b", "[diff --git a/x b/x](1 1 |1, a|,1 b)"},
        {"what stands before a hunk and after the last line of a file",
         "diff --git a/x b/x\nindex 1..2\n--- a/x\n+++ b/x\n@@ -3,2 +3,2 @@ def f(x):  # y\n c\n-d\n+e\n\\ No newline",
         "[diff --git a/x b/x](3 3 def f(x):  # y|3,3 c|4, d|,4 e)"},
        {"lines that look like headers have a sign",
         "diff --git a/x b/x\n@@ -1,3 +1,2 @@\n--- a/y\n+++ b/y\n-@@ -1 +1 @@\n diff --git a/z b/z",
         "[diff --git a/x b/x](1 1 |1, -- a/y|,1 ++ b/y|2, @@ -1 +1 @@|3,2 diff --git a/z b/z)"},
        {"an empty line is one of context", "diff --git a b\n@@ -1,3 +1,2 @@\n-a\n\n b",
         "[diff --git a b](1 1 |1, a|2,1 |3,2 b)"},
        {"a file that became a link",
         "diff --git a/x b/x\n@@ -1 +0,0 @@\n-a\ndiff --git a/x b/x\nnew file\n@@ -0,0 +1 @@\n+b\ndiff --git a/y b/y",
         "[diff --git a/x b/x](1 0 |1, a)(0 1 |,1 b)[diff --git a/y b/y]"},
        {"a submodule's commits", "diff --git a/x b/x\n@@ -1 +1 @@\n-a\nSubmodule m 1..2:\n  > it\ndiff --git a/y b/y",
         "[diff --git a/x b/x](1 1 |1, a)[Submodule m 1..2:][diff --git a/y b/y]"},
        {"a hunk of nobody", "@@ -1 +1 @@\n-a\ndiff --git a/x b/x", "[diff --git a/x b/x]"},
        {"what is no header of a hunk",
         "diff --git a b\n@@ -1 +1\n@@ - +1 @@\n@@ -1 +x @@\n@@ -1 +1 @@@\n@@ -1  +1 @@\n@@ -99999999999999999999 +1 "
         "@@\n-a",
         "[diff --git a b]"},
        {"bytes that are no UTF-8", "diff --git a/\xFF b/\xFF\n@@ -1 +1 @@ \xFF\n-\xFF",
         "[diff --git a/\xFF b/\xFF](1 1 \uFFFD|1, \uFFFD)"},
    };

    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        EXPECT_EQ(rendered(c.text), c.expected);
    }
}

} // namespace
} // namespace veltry
