#include "Base/Text.h"
#include "Experiments/Changes/DiffReader.h"
#include "Property.h"

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

using veltry::Changes;
using veltry::DiffReader;
using veltry::fuzz::require;

namespace {

/// The sections as a diff that says the same.
std::string written(const std::vector<DiffReader::Section>& sections)
{
    std::string text;
    for (const DiffReader::Section& section : sections) {
        text += section.header + '\n';
        if (!section.target.empty())
            text += "rename to " + section.target + '\n';
        for (const Changes::Hunk& hunk : section.hunks) {
            text += "@@ -" + std::to_string(hunk.oldStart) + " +" + std::to_string(hunk.newStart) + " @@ " +
                    hunk.heading + '\n';
            for (const Changes::Line& line : hunk.lines) {
                text += !line.oldNumber ? '+' : !line.newNumber ? '-' : ' ';
                text += line.text + '\n';
            }
        }
    }
    if (!text.empty())
        text.pop_back();
    return text;
}

void checkNumbers(const Changes::Hunk& hunk)
{
    std::int64_t oldLine = hunk.oldStart;
    std::int64_t newLine = hunk.newStart;
    for (const Changes::Line& line : hunk.lines) {
        require(line.oldNumber || line.newNumber, "a line stands on a side");
        require(!line.oldNumber || *line.oldNumber == oldLine++, "the old side is counted without a gap");
        require(!line.newNumber || *line.newNumber == newLine++, "the new side is counted without a gap");
        require((line.kind == Changes::Line::Kind::context) == (line.oldNumber && line.newNumber), "kind and numbers");
        require(veltry::text::isValidUTF8(line.text) && !line.text.contains('\n'), "a line is one line of text");
    }
}

} // namespace

/// Any bytes are read, and what was read is read again from a diff that is written of it.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    const std::string_view text(reinterpret_cast<const char*>(data), size);
    const std::vector<DiffReader::Section> sections = DiffReader(text).read();
    for (const DiffReader::Section& section : sections)
        for (const Changes::Hunk& hunk : section.hunks)
            checkNumbers(hunk);
    require(DiffReader(written(sections)).read() == sections, "a written diff reads back equal");
    return 0;
}
