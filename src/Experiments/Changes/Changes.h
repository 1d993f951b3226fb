#pragma once

#include "Base/JSONValue.h"
#include "Base/Words.h"

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace veltry {

/// What a node changed: its code beside the code that it grew from, ready to be shown. A value, made by Lab::changes().
struct Changes {
    /// One line of a hunk.
    struct Line {
        enum class Kind { context, added, removed };

        Kind kind = Kind::context;
        std::string text;                      ///< without the sign in front and the line feed; valid UTF-8
        std::optional<std::int64_t> oldNumber; ///< the line's number on the old side, from 1; none for an added line
        std::optional<std::int64_t> newNumber; ///< on the new side; none for a removed line

        friend bool operator==(const Line&, const Line&) = default;
    };

    /// Changed lines that stand together, with the lines of context around them.
    struct Hunk {
        std::int64_t oldStart = 0; ///< the line where it begins on each side; 0 where that side is empty
        std::int64_t newStart = 0;
        std::string heading; ///< usually the function around it; may be empty
        std::vector<Line> lines;

        friend bool operator==(const Hunk&, const Hunk&) = default;
    };

    enum class Kind { added, deleted, modified, renamed, copied };

    struct File {
        enum class Shown {
            lines,   ///< the hunks are there; a file that was only renamed has none
            binary,  ///< no text, so no counts and no hunks
            tooLarge ///< left out by the limits below; the counts are there
        };

        std::string path;                   ///< relative to the repository's top; valid UTF-8
        std::optional<std::string> oldPath; ///< of what was renamed or copied
        Kind kind = Kind::modified;
        std::optional<std::int64_t> added; ///< lines; none for a binary file
        std::optional<std::int64_t> removed;
        Shown shown = Shown::lines;
        std::vector<Hunk> hunks;

        /// Tells the files of one comparison apart.
        [[nodiscard]] const std::string& id() const { return path; }

        friend bool operator==(const File&, const File&) = default;
    };

    /// Changed lines, added and removed ones together, of a file whose text is shown: at most this many.
    static constexpr std::int64_t fileLimit = 3000;
    /// The same of all files of one comparison. A file that doesn't fit doesn't stop those after it.
    static constexpr std::int64_t totalLimit = 20000;
    /// Lines of context around a change.
    static constexpr int contextLines = 3;

    std::string base;        ///< the id of the commit that both sides have in common
    std::string against;     ///< what is shown as the base: a branch's name or a short commit id
    bool frozen = false;     ///< the comparison shows the commit of a run
    std::vector<File> files; ///< in git's order, that of their paths

    /// The sums of the files' counts; a binary file counts 0.
    [[nodiscard]] std::int64_t added() const;
    [[nodiscard]] std::int64_t removed() const;

    friend bool operator==(const Changes&, const Changes&) = default;
};

template <>
inline constexpr auto wordsOf<Changes::Kind> = std::to_array<Word<Changes::Kind>>({
    {Changes::Kind::added, "added"},
    {Changes::Kind::deleted, "deleted"},
    {Changes::Kind::modified, "modified"},
    {Changes::Kind::renamed, "renamed"},
    {Changes::Kind::copied, "copied"},
});

/// An object with the names of the fields as keys, those of a line's numbers being "old" and "new". Enumerations are
/// texts of their values' names; what is absent is left out.
[[nodiscard]] JSONValue toJSON(const Changes& changes);
[[nodiscard]] JSONValue toJSON(const Changes::File& file);

} // namespace veltry
