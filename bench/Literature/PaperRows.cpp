#include "Base/JSONValue.h"
#include "Literature/OpenAlexAnswer.h"
#include "Literature/PaperTexts.h"
#include "Programs.h"
#include "Rows.h"

#include <fmt/format.h>

namespace veltry::bench {

namespace {

constexpr int works = 25;
constexpr int wordsOfAbstract = 2'800; // a work then has about 40 KB, and the answer 1 MB
constexpr int distinctWords = 900;

/// The words of an abstract with their positions, in the order of their first, as the service gives them.
std::string makeIndex()
{
    std::vector<std::string> words;
    for (int first = 0; first < distinctWords; ++first) {
        std::vector<int> positions;
        for (int position = first; position < wordsOfAbstract; position += distinctWords)
            positions.push_back(position);
        words.push_back(fmt::format("\"word{}\":[{}]", first * 31 % distinctWords, fmt::join(positions, ",")));
    }
    return fmt::format("{{{}}}", fmt::join(words, ","));
}

/// A work as the service gives it, with a long abstract.
std::string makeWork(int number, const std::string& index)
{
    JSONValue::Array authorships;
    JSONValue::Array locations;
    for (int one = 0; one < 40; ++one) {
        authorships.push_back(JSONValue::object({
            {"author", JSONValue::object({{"display_name", fmt::format("Author {}", one)}, {"orcid", nullptr}})},
            {"institutions", JSONValue::array({JSONValue::object({{"display_name", "A university of some length"}})})},
            {"raw_affiliation_strings", JSONValue::array({std::string(300, 'x')})},
        }));
        locations.push_back(JSONValue::object({{"pdf_url", fmt::format("https://repository.example/{}.pdf", one)}}));
    }
    return fmt::format(
        R"({{"id":"https://openalex.org/W{0}","display_name":"A title of work {0}","authorships":{1},"locations":{2},)"
        R"("abstract_inverted_index":{3}}})",
        number, JSONValue(std::move(authorships)).text(), JSONValue(std::move(locations)).text(), index);
}

/// A store whose one project holds that many papers, each with an abstract.
class Library {
public:
    Library(const std::filesystem::path& folder, int count) : lab_(makeLab(folder, folder, {}, std::to_string(count)))
    {
        for (int number = 0; number < count; ++number)
            lab_.store->savePaper(
                {.id = fmt::format("W{}", number),
                 .title = "A title",
                 .authors = {"A", "B"},
                 .year = 2023,
                 .venue = {},
                 .citations = 7,
                 .doi = {},
                 .url = "https://openalex.org/W1",
                 .pdfURL = {},
                 .abstract = std::string(1'500, 'x')},
                lab_.project.id);
    }

    /// What get_paper answers for a paper that is saved.
    [[nodiscard]] std::string text() const
    {
        const Paper paper = lab_.store->libraryPaper("W7").value();
        return PaperTexts::paper(paper, lab_.store->libraryPaper(paper.id, lab_.project.id).has_value(), {});
    }

private:
    Lab lab_;
};

} // namespace

Measured searchAnswer(const Workplace& /*place*/)
{
    const std::string index = makeIndex();
    std::vector<std::string> results;
    for (int number = 0; number < works; ++number)
        results.push_back(makeWork(number, index));
    const std::string body = fmt::format(R"({{"meta":{{"count":{}}},"results":[{}]}})", works, fmt::join(results, ","));
    const auto ours = [&] {
        return secondsOf([&] {
            std::vector<PaperTexts::Entry> entries;
            for (Paper& paper : OpenAlexAnswer::page(body).papers)
                entries.push_back({.paper = std::move(paper)});
            static_cast<void>(PaperTexts::list(entries));
        });
    };
    const auto limit = [&] { return secondsOf([&] { static_cast<void>(JSONValue::parse(body)); }); };
    return interleaved(31, ours, limit);
}

Measured paperOfLibrary(const Workplace& place)
{
    const Library large(place.folder, 10'000);
    const Library small(place.folder, 10);
    const auto timed = [](const Library& library) {
        return [&] { return medianSecondsOf(100, [&] { static_cast<void>(library.text()); }); };
    };
    return interleaved(15, timed(large), timed(small));
}

} // namespace veltry::bench
