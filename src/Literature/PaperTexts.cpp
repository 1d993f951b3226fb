#include "Literature/PaperTexts.h"

#include "Base/Text.h"

#include <fmt/format.h>

#include <algorithm>
#include <span>

namespace veltry::PaperTexts {

namespace {

constexpr std::size_t authorsInEntry = 3;
constexpr std::size_t authorsInPaper = 20;
constexpr std::size_t abstractInEntry = 300; ///< characters

void line(std::string& text, std::string_view what)
{
    text.append(what).append("\n");
}

void entry(std::string& text, std::size_t number, const Entry& entry)
{
    const Paper& paper = entry.paper;
    const std::string year = paper.year ? fmt::format(" ({})", *paper.year) : "";
    line(text, fmt::format("{}. {} · {}{}", number, paper.id, paper.title, year));

    std::vector<std::string> items;
    if (!paper.authors.empty())
        items.push_back(authors(paper, authorsInEntry));
    if (paper.venue)
        items.push_back(*paper.venue);
    items.push_back(fmt::format("{} citations", paper.citations));
    if (paper.pdfURL)
        items.emplace_back("open-access PDF");
    if (entry.saved)
        items.emplace_back("saved to this project");
    line(text, "   " + text::joined(items, " · "));

    if (paper.abstract)
        line(text, "   " + cut(*paper.abstract, abstractInEntry));
    for (const CitingExperiment& node : entry.citing)
        line(text, fmt::format("   Cited by {} ({}): {}", node.title, node.experimentID.text(), node.reason));
}

} // namespace

std::string list(const std::vector<Entry>& entries)
{
    std::string text;
    std::size_t number = 0;
    for (const Entry& each : entries) {
        if (number > 0)
            text += '\n';
        entry(text, ++number, each);
    }
    if (!text.empty())
        text.pop_back(); // the last line feed
    return text;
}

std::string paper(const Paper& paper, bool saved, const std::optional<std::filesystem::path>& file)
{
    std::string text;
    line(text, paper.title);
    line(text, "");
    line(text, "ID: " + paper.id);
    line(text, "Authors: " + authors(paper, authorsInPaper));
    if (paper.year)
        line(text, fmt::format("Year: {}", *paper.year));
    if (paper.venue)
        line(text, "Venue: " + *paper.venue);
    line(text, fmt::format("Citations: {}", paper.citations));
    if (paper.doi)
        line(text, "DOI: " + *paper.doi);
    line(text, "Link: " + paper.url);
    if (paper.pdfURL)
        line(text, "PDF: " + *paper.pdfURL);
    if (file)
        line(text, "Downloaded: " + file->string());
    line(text, saved ? "Saved to this project: yes" : "Saved to this project: no");
    line(text, "");
    return text + paper.abstract.value_or("OpenAlex has no abstract for this paper.");
}

std::string authors(const Paper& paper, std::size_t limit)
{
    const std::span<const std::string> all = paper.authors;
    const std::string names = text::joined(all.first(std::min(limit, all.size())), ", ");
    return all.size() > limit ? fmt::format("{} and {} more", names, all.size() - limit) : names;
}

std::string cut(std::string_view text, std::size_t count)
{
    std::string_view start = text::firstCharacters(text, count);
    if (start.size() == text.size())
        return std::string(text);
    // At a blank, so that no word is cut; a text without one is cut where it must be.
    if (const std::size_t blank = start.rfind(' '); blank != std::string_view::npos)
        start = start.substr(0, blank);
    return std::string(start) + "…";
}

} // namespace veltry::PaperTexts
