#include "Literature/BibTeX.h"

#include <gmock/gmock.h>

namespace veltry {
namespace {

using testing::ElementsAre;

Paper makePaper(std::string title, std::vector<std::string> authors, std::optional<std::int64_t> year = 2017)
{
    return {
        .id = "W7",
        .title = std::move(title),
        .authors = std::move(authors),
        .year = year,
        .url = "https://openalex.org/W7"};
}

TEST(BibTeX, WritesEntriesThatStayWhole)
{
    Paper full =
        makePaper("On {50% of\n\\LaTeX & $x_1$ ~ <i>", {"Jürgen Müller", "Acme, Inc.", "Tom and Jerry", "Bo # "});
    full.venue = "Log & Co";
    full.doi = "https://doi.org/10.1/a_b{c%20d";
    full.url = "https://a.example/x y}?q=1&r=%41";
    const std::vector<Paper> papers = {full, makePaper("Nameless", {}, {})};
    EXPECT_EQ(
        BibTeX::entries(papers),
        R"(@article{muller201750,
  title = {{On \textbraceleft{}50\% of \textbackslash{}LaTeX \& \$x\_1\$ \textasciitilde{} \textless{}i\textgreater{}}},
  author = {Jürgen Müller and {Acme, Inc.} and {Tom and Jerry} and Bo \#},
  year = {2017},
  journal = {Log \& Co},
  doi = {10.1/a_b%7Bc%20d},
  url = {https://a.example/x%20y%7D?q=1&r=%41},
}

@misc{nameless,
  title = {{Nameless}},
  url = {https://openalex.org/W7},
}
)");
}

TEST(BibTeX, KeysAreUniqueAndKeepTheirPlaces)
{
    std::vector<Paper> papers = {
        makePaper("Attention is all", {"Ashish Vaswani"}),
        makePaper("The attention", {"Vaswani, Ashish"}),
        makePaper("Attention", {"A Vaswani"}),
        makePaper("注意", {"李明"}),
        makePaper("注意", {"李明"}),
        makePaper("Self-play of X", {"L'Étoile"}, {})};
    EXPECT_THAT(
        BibTeX::keys(papers), ElementsAre(
                                  "vaswani2017attention", "vaswani2017attentionb", "vaswani2017attentionc", "w72017",
                                  "w72017b", "letoileself"));
    papers.assign(60, papers.front());
    std::vector<std::string> keys = BibTeX::keys(papers);
    std::ranges::sort(keys);
    EXPECT_TRUE(std::ranges::adjacent_find(keys) == keys.end());
}

} // namespace
} // namespace veltry
