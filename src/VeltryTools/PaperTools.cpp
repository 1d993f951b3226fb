#include "VeltryTools/PaperTools.h"

#include "Experiments/LabError.h"

#include <fmt/format.h>

namespace veltry {

namespace {

asio::awaitable<std::string> refuse(std::string name)
{
    throw LabError("not_available", fmt::format("{} isn't there yet. Go on without it.", name));
    co_return std::string();
}

} // namespace

const std::vector<Tool>& PaperTools::tools()
{
    using namespace schema;
    static const std::vector<Tool> table = {
        {"search_papers", "Searches published papers (OpenAlex: every discipline, arXiv included) by the words in their title and abstract, most relevant first. Each result has an id for get_paper, save_paper and download_paper. Each search spends part of a daily budget, so search with specific terms rather than many variations.", object({string("query", true, "Words to find in titles and abstracts: \"direct preference optimization\"."), integer("limit", false, "How many papers, up to 25. 10 by default.")})},
        {"get_paper", "Shows one paper: its title, authors, venue, citations, whole abstract, links, and whether it is saved to this project.", object({string("paper_id", true, "The paper's id: W4385245566.")})},
        {"save_paper", "Saves a paper to this project in the person's Library in Veltry, where they can read it. Save the papers the project builds on, not every result.", object({string("paper_id", true, "The paper's id.")})},
        {"cite_paper", "Records that a node relied on a paper: what it builds on, compares against, or borrows. The person sees it on the node, and the paper is saved to this project. Citing the same paper from the same node again replaces the reason.", object({string("paper_id", true, "The paper's id."), string("experiment_id", true, "The node that relied on it."), string("reason", true, "One sentence: what the node takes from the paper. \"The DPO loss, unchanged.\"")})},
        {"list_library", "Lists the papers saved to this project, the latest saved first, with the nodes that cite each.", object({})},
        {"download_paper", "Downloads a paper's open-access PDF to this Mac and returns its path. Read the PDF with your own file tools. Refused for a paper with no open-access PDF.", object({string("paper_id", true, "The paper's id.")})},
    };
    return table;
}

asio::awaitable<ToolOutcome> PaperTools::call(std::string name, JSONValue /*arguments*/) const
{
    return outcomeOf(refuse(std::move(name)));
}

} // namespace veltry
