#pragma once

#include "Experiments/Changes/Changes.h"

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace veltry {

/// Reads the text of a diff as `git diff` prints it, without colour. Whatever bytes it is given, it never fails: what
/// is no line of a hunk is passed over.
///
/// Used once: `DiffReader(text).read()`.
class DiffReader {
public:
    /// What the diff says of one file.
    struct Section {
        /// The line that it begins with: "diff --git a/x b/x", or "Submodule x 1234567..89abcde:" where a submodule's
        /// commits are listed. Bytes as git wrote them, quotes and all.
        std::string header;
        /// Where a renamed or copied file lies now, as git wrote it: of `"x b/y"` and its kind the header alone doesn't
        /// tell. Empty for others.
        std::string target{};
        std::vector<Changes::Hunk> hunks;

        friend bool operator==(const Section&, const Section&) = default;
    };

    /// The text must live until read() is over.
    explicit DiffReader(std::string_view text) : rest_(text) {}

    /// The sections in their order. Of a file that became a link git prints two, one for what went and one for what
    /// came, under the same line; they are one here.
    [[nodiscard]] std::vector<Section> read();

private:
    [[nodiscard]] std::string_view takeLine();
    void beginSection(std::string_view line);
    void extendHeader(std::string_view line);
    [[nodiscard]] bool beginHunk(std::string_view line);
    void hunkLine(std::string_view line);

    std::string_view rest_;
    bool atEnd_ = false;
    std::vector<Section> sections_;
    bool wentAway_ = false;         // what the last section told of, as far as it was read
    bool wentAwayBefore_ = false;   // and the one before it
    Changes::Hunk* hunk_ = nullptr; // the one under way, the last of the last section
    std::int64_t oldLine_ = 0;      // the number of the next line on each side
    std::int64_t newLine_ = 0;
};

} // namespace veltry
