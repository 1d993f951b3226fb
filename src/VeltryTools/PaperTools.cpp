#include "VeltryTools/PaperTools.h"

#include "Base/Numbers.h"
#include "Base/Text.h"
#include "Literature/OpenAlex.h"
#include "Literature/PaperTexts.h"
#include "VeltryTools/ToolArguments.h"

#include <asio/use_awaitable.hpp>
#include <fmt/format.h>

#include <algorithm>
#include <functional>

namespace veltry {

namespace {

constexpr std::int64_t defaultLimit = 10;
constexpr std::int64_t highestLimit = OpenAlex::pageSize;

/// How a failure of the service or of a download reaches an agent: its text, with a word in front that says which.
struct Failed : Error {
    Failed(std::string_view word, const Error& error) : text(fmt::format("{}: {}", word, error.description())) {}
    [[nodiscard]] std::string description() const override { return text; }
    std::string text;
};

/// Gives failures of the service and of downloads the words by which an agent tells them from those of the lab.
asio::awaitable<std::string> named(asio::awaitable<std::string> work)
{
    try {
        co_return co_await std::move(work);
    } catch (const PaperSearchError& error) {
        throw Failed("search_failed", error);
    } catch (const PaperFileError& error) {
        throw Failed("download_failed", error);
    }
}

} // namespace

std::vector<Tool> PaperTools::tools() const
{
    using namespace schema;
    const auto self = std::make_shared<const PaperTools>(*this);
    const auto asking = [self](Answer (PaperTools::*handler)(JSONValue) const) -> Tool::Waiting {
        return [self, handler](JSONValue arguments, const Progress& /*progress*/) {
            return named((self.get()->*handler)(std::move(arguments)));
        };
    };
    return {
        {"search_papers",
         "Searches published papers (OpenAlex: every discipline, arXiv included) by the words in their title and "
         "abstract, most relevant first. Each result has an id for get_paper, save_paper and download_paper. Each "
         "search spends part of a daily budget, so search with specific terms rather than many variations.",
         object({
             string("query", true, "Words to find in titles and abstracts: \"direct preference optimization\"."),
             integer("limit", false, "How many papers, up to 25. 10 by default."),
         }),
         asking(&PaperTools::searchPapers)},
        {"get_paper",
         "Shows one paper: its title, authors, venue, citations, whole abstract, links, and whether it is saved to "
         "this project.",
         object({string("paper_id", true, "The paper's id: W4385245566.")}), asking(&PaperTools::getPaper)},
        {"save_paper",
         "Saves a paper to this project in the person's Library in Veltry, where they can read it. Save the papers "
         "the project builds on, not every result.",
         object({string("paper_id", true, "The paper's id.")}), asking(&PaperTools::savePaper)},
        {"cite_paper",
         "Records that a node relied on a paper: what it builds on, compares against, or borrows. The person sees "
         "it on the node, and the paper is saved to this project. Citing the same paper from the same node again "
         "replaces the reason.",
         object({
             string("paper_id", true, "The paper's id."),
             string("experiment_id", true, "The node that relied on it."),
             string("reason", true, "One sentence: what the node takes from the paper. \"The DPO loss, unchanged.\""),
         }),
         asking(&PaperTools::citePaper)},
        {"list_library",
         "Lists the papers saved to this project, the latest saved first, with the nodes that cite each.", object({}),
         std::bind_front(&PaperTools::listLibrary, self)},
        {"download_paper",
         "Downloads a paper's open-access PDF to this Mac and returns its path. Read the PDF with your own file "
         "tools. Refused for a paper with no open-access PDF.",
         object({string("paper_id", true, "The paper's id.")}), asking(&PaperTools::downloadPaper)},
    };
}

asio::awaitable<Paper> PaperTools::paper(JSONValue arguments) const
{
    const std::string given = ToolArguments::requiredString("paper_id", arguments);
    const std::string id = text::replacingAll(text::trimmedBlanks(given), OpenAlex::site, "");
    // Whatever project it was saved to: that costs no search, of which there are only so many a day.
    if (std::optional<Paper> known = lab->store->libraryPaper(id))
        co_return std::move(*known);
    std::optional<Paper> found = co_await search->paper(id);
    if (!found)
        throw LabError(
            LabError::Code::paperNotFound,
            fmt::format("No paper {}. Use an id from search_papers, like W4385245566.", id), {.name = id});
    co_return std::move(*found);
}

bool PaperTools::isSaved(const Paper& paper) const
{
    return lab->store->libraryPaper(paper.id, lab->project.id).has_value();
}

PaperTools::Answer PaperTools::searchPapers(JSONValue arguments) const
{
    const std::string query = ToolArguments::requiredString("query", arguments);
    const std::int64_t limit = ToolArguments::optionalInt("limit", arguments).value_or(defaultLimit);
    const auto shown = static_cast<std::size_t>(std::clamp<std::int64_t>(limit, 1, highestLimit));
    PaperPage page = co_await search->search(query);
    if (page.papers.empty())
        co_return fmt::format("No papers match \"{}\".", query);
    page.papers.resize(std::min(shown, page.papers.size()));
    std::vector<PaperTexts::Entry> entries;
    for (Paper& paper : page.papers) {
        // Before the paper is moved away.
        const bool saved = isSaved(paper);
        entries.push_back({.paper = std::move(paper), .saved = saved});
    }
    co_return fmt::format(
        "{} of {} papers matching \"{}\":\n\n{}", entries.size(), page.total, query, PaperTexts::list(entries));
}

PaperTools::Answer PaperTools::getPaper(JSONValue arguments) const
{
    const Paper found = co_await paper(std::move(arguments));
    co_return PaperTexts::paper(found, isSaved(found), files.cached(found));
}

PaperTools::Answer PaperTools::savePaper(JSONValue arguments) const
{
    const Paper found = co_await paper(std::move(arguments));
    if (isSaved(found))
        co_return fmt::format("{} is already saved to this project.", found.title);
    lab->store->savePaper(found, lab->project.id);
    co_return fmt::format("Saved {} to this project.", found.title);
}

PaperTools::Answer PaperTools::citePaper(JSONValue arguments) const
{
    // The node before the paper: one that isn't there must not cost a search.
    const Experiment experiment = lab->experiment(ToolArguments::node(arguments));
    const Paper found = co_await paper(arguments);
    const std::string reason = ToolArguments::requiredString("reason", arguments);
    lab->store->cite(found, experiment.id, text::trimmed(reason));
    co_return fmt::format("{} cites {}.", experiment.title, found.title);
}

std::string PaperTools::listLibrary(const JSONValue& /*arguments*/) const
{
    std::vector<Paper> papers = lab->store->libraryPapers(lab->project.id);
    if (papers.empty())
        return "No papers are saved to this project.";
    // Papers are shared by all projects, and so are their citations; those of other projects are left out below.
    std::map<std::string, std::vector<CitingExperiment>> citing = lab->store->citingExperiments();
    std::vector<PaperTexts::Entry> entries;
    for (Paper& paper : papers) {
        std::vector<CitingExperiment> nodes = std::move(citing[paper.id]);
        std::erase_if(nodes, [&](const CitingExperiment& each) { return each.projectID != lab->project.id; });
        entries.push_back({.paper = std::move(paper), .saved = true, .citing = std::move(nodes)});
    }
    return fmt::format(
        "{} saved to this project:\n\n{}", counted(std::ssize(entries), "paper", "papers"), PaperTexts::list(entries));
}

PaperTools::Answer PaperTools::downloadPaper(JSONValue arguments) const
{
    const Paper found = co_await paper(std::move(arguments));
    const std::filesystem::path path = co_await files.pdf(found);
    co_return fmt::format("Downloaded {} to {}", found.title, path.string());
}

} // namespace veltry
