#include "Base/Address.h"
#include "Literature/OpenAlexAnswer.h"
#include "Property.h"

#include <cstddef>
#include <cstdint>
#include <string_view>

using veltry::Paper;
using veltry::PaperSearchError;
using veltry::fuzz::require;
namespace OpenAlexAnswer = veltry::OpenAlexAnswer;

namespace {

/// Returns the length of its abstract.
std::size_t check(const Paper& paper)
{
    require(!paper.title.empty(), "a paper has a title");
    require(veltry::Address::absolute(paper.url) == paper.url, "its page is an address, and stays the same");
    if (paper.pdfURL)
        require(veltry::Address::absolute(*paper.pdfURL) == *paper.pdfURL, "and so is its PDF's");
    return paper.abstract ? paper.abstract->size() : 0;
}

template <typename Read>
void checkAll(Read read)
{
    try {
        read();
    } catch (const PaperSearchError& error) {
        require(error.kind == PaperSearchError::Kind::unreadable, "nothing else is wrong with an answer");
    }
}

} // namespace

/// Any answer is read or refused, what comes of it is whole, and its texts stay in proportion to it.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    const std::string_view body(reinterpret_cast<const char*>(data), size);
    const std::size_t mostText = (1U << 20) + 4 * size;
    checkAll([&] {
        std::size_t text = 0;
        for (const Paper& paper : OpenAlexAnswer::page(body).papers)
            text += check(paper);
        require(text <= mostText, "a page's abstracts are no longer than it is worth");
    });
    checkAll([&] {
        if (const auto paper = OpenAlexAnswer::work(body))
            require(check(*paper) <= mostText, "an abstract is no longer than its work is worth");
    });
    return 0;
}
