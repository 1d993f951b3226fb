#include "VeltryTools/PaperTools.h"

#include "Base/Text.h"
#include "Literature/OpenAlex.h"
#include "Literature/PaperTexts.h"
#include "VeltryTools/LabTools.h"

#include <asio/use_awaitable.hpp>
#include <fmt/format.h>

#include <algorithm>

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

} // namespace

/// A tool and what it does.
struct PaperTools::Row {
    Tool tool;
    Answer (PaperTools::*handler)(JSONValue arguments) const;
};

const std::vector<PaperTools::Row>& PaperTools::rows()
{
    using namespace schema;
    static const std::vector<Row> table = {
        {{"search_papers",
          "Searches published papers (OpenAlex: every discipline, arXiv included) by the words in their title and "
          "abstract, most relevant first. Each result has an id for get_paper, save_paper and download_paper. Each "
          "search spends part of a daily budget, so search with specific terms rather than many variations.",
          object({
              string("query", true, "Words to find in titles and abstracts: \"direct preference optimization\"."),
              integer("limit", false, "How many papers, up to 25. 10 by default."),
          })},
         &PaperTools::searchPapers},
        {{"get_paper",
          "Shows one paper: its title, authors, venue, citations, whole abstract, links, and whether it is saved to "
          "this project.",
          object({string("paper_id", true, "The paper's id: W4385245566.")})},
         &PaperTools::getPaper},
        {{"save_paper",
          "Saves a paper to this project in the person's Library in Veltry, where they can read it. Save the papers "
          "the project builds on, not every result.",
          object({string("paper_id", true, "The paper's id.")})},
         &PaperTools::savePaper},
        {{"cite_paper",
          "Records that a node relied on a paper: what it builds on, compares against, or borrows. The person sees "
          "it on the node, and the paper is saved to this project. Citing the same paper from the same node again "
          "replaces the reason.",
          object({
              string("paper_id", true, "The paper's id."),
              string("experiment_id", true, "The node that relied on it."),
              string("reason", true, "One sentence: what the node takes from the paper. \"The DPO loss, unchanged.\""),
          })},
         &PaperTools::citePaper},
        {{"list_library",
          "Lists the papers saved to this project, the latest saved first, with the nodes that cite each.", object({})},
         &PaperTools::listLibrary},
        {{"download_paper",
          "Downloads a paper's open-access PDF to this Mac and returns its path. Read the PDF with your own file "
          "tools. Refused for a paper with no open-access PDF.",
          object({string("paper_id", true, "The paper's id.")})},
         &PaperTools::downloadPaper},
    };
    return table;
}

const std::vector<Tool>& PaperTools::tools()
{
    static const std::vector<Tool> shown = shownTools(rows());
    return shown;
}

asio::awaitable<ToolOutcome> PaperTools::call(std::string name, JSONValue arguments) const
{
    return outcomeOf(answer(std::move(name), std::move(arguments)));
}

PaperTools::Answer PaperTools::answer(std::string name, JSONValue arguments) const
{
    Answer work = callTool(rows(), name, *this, std::move(arguments));
    try {
        co_return co_await std::move(work);
    } catch (const PaperSearchError& error) {
        throw Failed("search_failed", error);
    } catch (const PaperFileError& error) {
        throw Failed("download_failed", error);
    }
}

asio::awaitable<Paper> PaperTools::paper(JSONValue arguments) const
{
    const std::string given = LabTools::requiredString("paper_id", arguments);
    const std::string id = text::replacingAll(text::trimmedBlanks(given), OpenAlex::site, "");
    if (std::optional<Paper> known = store->libraryPaper(id))
        co_return std::move(*known);
    asio::awaitable<std::optional<Paper>> asked = search->paper(id);
    std::optional<Paper> found = co_await std::move(asked);
    if (!found)
        throw LabError(
            LabError::Code::paperNotFound,
            fmt::format("No paper {}. Use an id from search_papers, like W4385245566.", id), {.name = id});
    co_return std::move(*found);
}

bool PaperTools::isSaved(const Paper& paper) const
{
    return store->libraryPaper(paper.id, lab.project.id).has_value();
}

PaperTools::Answer PaperTools::searchPapers(JSONValue arguments) const
{
    const std::string query = LabTools::requiredString("query", arguments);
    const std::int64_t limit = LabTools::optionalInt("limit", arguments).value_or(defaultLimit);
    const auto shown = static_cast<std::size_t>(std::clamp<std::int64_t>(limit, 1, highestLimit));
    asio::awaitable<PaperPage> asked = search->search(query);
    PaperPage page = co_await std::move(asked);
    if (page.papers.empty())
        co_return fmt::format("No papers match \"{}\".", query);
    page.papers.resize(std::min(shown, page.papers.size()));
    std::vector<PaperTexts::Entry> entries;
    for (Paper& paper : page.papers) {
        const bool saved = isSaved(paper);
        entries.push_back({.paper = std::move(paper), .saved = saved});
    }
    co_return fmt::format(
        "{} of {} papers matching \"{}\":\n\n{}", entries.size(), page.total, query, PaperTexts::list(entries));
}

PaperTools::Answer PaperTools::getPaper(JSONValue arguments) const
{
    asio::awaitable<Paper> look = paper(std::move(arguments));
    const Paper found = co_await std::move(look);
    co_return PaperTexts::paper(found, isSaved(found), files.cached(found));
}

PaperTools::Answer PaperTools::savePaper(JSONValue arguments) const
{
    asio::awaitable<Paper> look = paper(std::move(arguments));
    const Paper found = co_await std::move(look);
    if (isSaved(found))
        co_return fmt::format("{} is already saved to this project.", found.title);
    store->savePaper(found, lab.project.id);
    co_return fmt::format("Saved {} to this project.", found.title);
}

PaperTools::Answer PaperTools::citePaper(JSONValue arguments) const
{
    const std::string node = LabTools::requiredString("experiment_id", arguments);
    const Experiment experiment = lab.experiment(node);
    asio::awaitable<Paper> look = paper(arguments);
    const Paper found = co_await std::move(look);
    const std::string reason = LabTools::requiredString("reason", arguments);
    store->cite(found, experiment.id, text::trimmed(reason));
    co_return fmt::format("{} cites {}.", experiment.title, found.title);
}

PaperTools::Answer PaperTools::listLibrary(JSONValue /*arguments*/) const
{
    std::vector<Paper> papers = store->libraryPapers(lab.project.id);
    if (papers.empty())
        co_return "No papers are saved to this project.";
    std::map<std::string, std::vector<CitingExperiment>> citing = store->citingExperiments();
    std::vector<PaperTexts::Entry> entries;
    for (Paper& paper : papers) {
        std::vector<CitingExperiment> nodes = std::move(citing[paper.id]);
        std::erase_if(nodes, [&](const CitingExperiment& each) { return each.projectID != lab.project.id; });
        entries.push_back({.paper = std::move(paper), .saved = true, .citing = std::move(nodes)});
    }
    co_return fmt::format(
        "{} saved to this project:\n\n{}", entries.size() == 1 ? "1 paper" : fmt::format("{} papers", entries.size()),
        PaperTexts::list(entries));
}

PaperTools::Answer PaperTools::downloadPaper(JSONValue arguments) const
{
    asio::awaitable<Paper> look = paper(std::move(arguments));
    const Paper found = co_await std::move(look);
    asio::awaitable<std::filesystem::path> download = files.pdf(found);
    const std::filesystem::path path = co_await std::move(download);
    co_return fmt::format("Downloaded {} to {}", found.title, path.string());
}

} // namespace veltry
