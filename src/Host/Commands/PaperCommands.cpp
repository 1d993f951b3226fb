#include "Base/Text.h"
#include "Host/Commands/Commands.h"
#include "Host/Context.h"
#include "Host/Terminal/Fields.h"
#include "Host/Terminal/Progress.h"
#include "Host/Terminal/TextTable.h"
#include "Host/Terminal/Wrapping.h"
#include "Literature/BibTeX.h"
#include "Literature/OpenAlex.h"
#include "Literature/PaperFiles.h"
#include "Literature/PaperTexts.h"
#include "Platform/Async/Awaited.h"
#include "Platform/ProcessFacts.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <unordered_map>

namespace veltry::Commands {

namespace {

using Count = Option::Count;
using Completion = Option::Completion;

constexpr std::size_t authorsInRow = 2;

/// The far service. Its session ends with it, and so before the process does.
class Service {
public:
    PaperPage search(const Context& context, const std::string& words) const
    {
        const Progress progress(context.notes(), "Searching");
        return awaited(openAlex_.search(words));
    }

    std::optional<Paper> paper(const Context& context, const std::string& id) const
    {
        const Progress progress(context.notes(), "Asking for the paper");
        return awaited(openAlex_.paper(id));
    }

    std::filesystem::path pdf(const Context& context, PaperFiles files, const Paper& paper) const
    {
        files.session = session_;
        const Progress progress(context.notes(), "Downloading");
        return awaited(files.pdf(paper));
    }

private:
    std::shared_ptr<HTTPSession> session_ = std::make_shared<HTTPSession>();
    OpenAlex openAlex_ = OpenAlex([] { return ProcessFacts::variable(OpenAlex::keyVariable); }, session_);
};

PaperFiles filesOf(Context& context)
{
    return PaperFiles::beside(context.store()->path());
}

/// "W4385245566" from that, from its address, or in small letters.
std::string paperID(std::string_view given)
{
    std::string id = text::replacingAll(text::trimmed(given), OpenAlex::site, "");
    if (id.starts_with('w'))
        id.front() = 'W';
    return id;
}

/// From the library, or else from the far service.
Paper paperNamed(Context& context, const Service& service, const std::string& given)
{
    const std::string id = paperID(given);
    if (std::optional<Paper> known = context.store()->libraryPaper(id))
        return std::move(*known);
    if (std::optional<Paper> found = service.paper(context, id))
        return std::move(*found);
    throw Refusal(fmt::format(
        "There is no paper \"{}\". Name it by its id, like W4385245566, which veltry papers and veltry papers search "
        "show.",
        given));
}

std::string yearOf(const Paper& paper)
{
    return paper.year ? fmt::format("{}", *paper.year) : "";
}

/// Papers with a last column that depends on the list.
class PaperTable {
public:
    explicit PaperTable(std::string last)
        : table_({
              {.heading = "paper"},
              {.heading = "title", .mayBeCut = true},
              {.heading = "authors", .mayBeCut = true},
              {.heading = "year"},
              {.heading = "citations", .toTheRight = true},
              {.heading = std::move(last)},
          })
    {
    }

    void add(const Paper& paper, std::string last)
    {
        table_.add({
            {paper.id, Style::cyan},
            {paper.title, Style::bold},
            {PaperTexts::authors(paper, authorsInRow)},
            {yearOf(paper)},
            {fmt::format("{}", paper.citations)},
            {std::move(last), Style::dim},
        });
    }

    [[nodiscard]] std::string text(const Terminal& terminal) const { return table_.text(terminal); }

private:
    TextTable table_;
};

void list(Context& context, const Arguments& arguments)
{
    const std::optional<UUID> project = arguments.has("--all") ? std::nullopt : std::optional(context.project().id);
    ProjectStore& store = *context.store();
    const std::vector<Paper> papers = project ? store.libraryPapers(*project) : store.libraryPapers();
    std::map<std::string, std::vector<CitingExperiment>> citing = store.citingExperiments();
    PaperTable table("cited by");
    JSONValue::Array documents;
    for (const Paper& paper : papers) {
        std::vector<std::string> nodes;
        JSONValue::Array records;
        for (const CitingExperiment& node : citing[paper.id]) {
            if (project && node.projectID != *project)
                continue;
            nodes.push_back(node.title);
            records.push_back(JSONValue::object(
                {{"experimentID", node.experimentID.text()},
                 {"projectID", node.projectID.text()},
                 {"title", node.title},
                 {"reason", node.reason}}));
        }
        table.add(paper, text::joined(nodes, ", "));
        JSONValue document = toJSON(paper);
        document.object()->insert_or_assign("citing", std::move(records));
        documents.push_back(std::move(document));
    }
    if (context.json())
        return context.printJSON(JSONValue(std::move(documents)));
    if (papers.empty())
        return context.note(
            project ? "No paper is saved to this project. veltry papers search WORDS finds some; --all shows those of "
                      "all projects."
                    : "No paper is saved.");
    context.print(table.text(context.out()));
}

void search(Context& context, const Arguments& arguments)
{
    const std::vector<std::string> words = arguments.all("WORDS");
    const auto limit = static_cast<std::size_t>(arguments.integer("--limit", 1).value_or(10));
    const std::string query = text::joined(words, " ");
    if (text::isBlank(query))
        throw UsageError("The words to search for are blank.");
    ProjectStore& store = *context.store();
    const UUID project = context.project().id;
    PaperPage page = Service().search(context, query);
    page.papers.resize(std::min(limit, page.papers.size()));
    if (context.json()) {
        JSONValue::Array papers;
        for (const Paper& paper : page.papers)
            papers.push_back(toJSON(paper));
        return context.printJSON(JSONValue::object({{"total", page.total}, {"papers", std::move(papers)}}));
    }
    if (page.papers.empty())
        return context.note(fmt::format("No paper matches \"{}\".", text::oneLine(query)));
    PaperTable table("");
    for (const Paper& paper : page.papers) {
        const bool isSaved = store.libraryPaper(paper.id, project).has_value();
        table.add(paper, fmt::format("{}{}", paper.pdfURL ? "PDF" : "", isSaved ? " saved" : ""));
    }
    context.print(table.text(context.out()));
    context.note(fmt::format("{} of {} papers that match, the most relevant first.", page.papers.size(), page.total));
}

/// The projects that hold the paper, the oldest first.
std::vector<Project> projectsWith(const Paper& paper, const ProjectStore& store)
{
    const std::unordered_map<UUID, std::vector<std::string>> held = store.projectPapers();
    std::vector<Project> projects = store.projects();
    std::erase_if(projects, [&](const Project& project) {
        const auto papers = held.find(project.id);
        return papers == held.end() || std::ranges::find(papers->second, paper.id) == papers->second.end();
    });
    return projects;
}

std::string paperText(
    const Paper& paper, const std::vector<Project>& projects, const std::optional<std::filesystem::path>& file,
    const Terminal& terminal)
{
    constexpr std::size_t widest = 100;
    Fields fields;
    fields.add("id", paper.id);
    fields.add("authors", PaperTexts::authors(paper, 20));
    fields.add("year", yearOf(paper));
    fields.add("venue", paper.venue.value_or(""));
    fields.add("citations", fmt::format("{}", paper.citations));
    fields.add("doi", paper.doi.value_or(""));
    fields.add("link", paper.url);
    fields.add("pdf", paper.pdfURL.value_or(""));
    fields.add("downloaded", file ? file->string() : "");
    std::vector<std::string> names;
    for (const Project& project : projects)
        names.push_back(project.name);
    fields.add("saved", names.empty() ? "no" : "to " + text::joined(names, ", "));
    const std::string abstract = paper.abstract.value_or("OpenAlex has no abstract for this paper.");
    const std::size_t width = terminal.size() ? std::min(terminal.size()->columns, widest) : widest;
    return fmt::format(
        "{}\n{}\n{}\n", terminal.styled(Style::bold, text::oneLine(paper.title)), fields.text(terminal),
        text::joined(wrapped(text::oneLine(abstract), width, LongWords::whole), "\n"));
}

void show(Context& context, const Arguments& arguments)
{
    const Paper paper = paperNamed(context, Service(), arguments.required("PAPER"));
    const std::vector<Project> projects = projectsWith(paper, *context.store());
    if (!context.json())
        return context.print(paperText(paper, projects, filesOf(context).cached(paper), context.out()));
    JSONValue::Array ids;
    for (const Project& project : projects)
        ids.emplace_back(project.id.text());
    const bool isSaved = std::ranges::find(projects, context.project().id, &Project::id) != projects.end();
    JSONValue document = toJSON(paper);
    document.object()->insert_or_assign("saved", isSaved);
    document.object()->insert_or_assign("projectIDs", std::move(ids));
    context.printJSON(document);
}

void save(Context& context, const Arguments& arguments)
{
    const UUID project = context.project().id;
    ProjectStore& store = *context.store();
    const Service service;
    for (const std::string& given : arguments.all("PAPER")) {
        const Paper paper = paperNamed(context, service, given);
        const bool wasSaved = store.libraryPaper(paper.id, project).has_value();
        store.savePaper(paper, project);
        context.note(fmt::format(
            "{} {}.", text::oneLine(paper.title), wasSaved ? "is saved to this project already" : "is saved"));
    }
}

void remove(Context& context, const Arguments& arguments)
{
    const std::optional<UUID> project = arguments.has("--all") ? std::nullopt : std::optional(context.project().id);
    ProjectStore& store = *context.store();
    for (const std::string& given : arguments.all("PAPER")) {
        const std::string id = paperID(given);
        const std::optional<Paper> paper = project ? store.libraryPaper(id, *project) : store.libraryPaper(id);
        if (!paper)
            throw Refusal(fmt::format("The paper \"{}\" isn't saved{}.", given, project ? " to this project" : ""));
        store.removePaper(id, project);
        context.note(fmt::format(
            "{} is removed from {}. Nodes that cite it still do.", text::oneLine(paper->title),
            project ? "this project" : "the library, and so from all projects"));
    }
}

void cite(Context& context, const Arguments& arguments)
{
    const Experiment node = context.node(arguments.required("NODE"));
    const std::string reason = arguments.required("--reason");
    if (text::isBlank(reason))
        throw UsageError("The reason is blank. Say in a sentence what the node takes from the paper.");
    const Paper paper = paperNamed(context, Service(), arguments.required("PAPER"));
    context.store()->cite(paper, node.id, text::trimmed(reason));
    context.note(fmt::format("{} cites {}.", text::oneLine(node.title), text::oneLine(paper.title)));
}

void uncite(Context& context, const Arguments& arguments)
{
    const Experiment node = context.node(arguments.required("NODE"));
    const std::string id = paperID(arguments.required("PAPER"));
    const std::vector<Citation> citations = context.store()->citations(context.project().id);
    const auto found = std::ranges::find_if(
        citations, [&](const Citation& each) { return each.experimentID == node.id && each.paper.id == id; });
    if (found == citations.end())
        throw Refusal(fmt::format("{} doesn't cite the paper \"{}\".", text::oneLine(node.title), id));
    context.store()->removeCitation(id, node.id);
    context.note(fmt::format(
        "{} doesn't cite {} any more. The paper stays in the library.", text::oneLine(node.title),
        text::oneLine(found->paper.title)));
}

void download(Context& context, const Arguments& arguments)
{
    const Service service;
    const Paper paper = paperNamed(context, service, arguments.required("PAPER"));
    context.print(service.pdf(context, filesOf(context), paper).string() + "\n");
}

void bibtex(Context& context, const Arguments& /*arguments*/)
{
    std::vector<Paper> papers; // the first to be cited first, so that keys stay when more are
    for (Citation& citation : context.store()->citations(context.project().id))
        if (std::ranges::find(papers, citation.paper.id, &Paper::id) == papers.end())
            papers.push_back(std::move(citation.paper));
    if (context.json()) {
        const std::vector<std::string> keys = BibTeX::keys(papers);
        JSONValue::Object entries;
        for (std::size_t index = 0; index < papers.size(); ++index)
            entries.emplace(keys[index], toJSON(papers[index]));
        return context.printJSON(JSONValue(std::move(entries)));
    }
    if (papers.empty())
        return context.note("No node of this project cites a paper.");
    context.print(BibTeX::entries(papers));
}

constexpr Option paperOption = {"PAPER", "", "Its id, like W4385245566, or its address at OpenAlex", Count::required};
constexpr Option papersOption = {"PAPER", "", "Ids, like W4385245566", Count::oneOrMore};
constexpr Option nodeOption = {
    "NODE", "", "The node that relies on it, by slug, branch, title or id", Count::required, Completion::node};

constexpr std::array listOptions = {Option{"--all", "", "Of all projects"}};
constexpr std::array searchOptions = {
    Option{"WORDS", "", "Words of titles and abstracts", Count::oneOrMore},
    Option{"--limit", "COUNT", "How many papers, at most 25; 10 by default"},
};
constexpr std::array showOptions = {paperOption};
constexpr std::array saveOptions = {papersOption};
constexpr std::array removeOptions = {
    papersOption, Option{"--all", "", "From the whole library, and so from all projects"}};
constexpr std::array citeOptions = {
    paperOption, nodeOption,
    Option{"--reason", "TEXT", "What the node takes from the paper, in a sentence", Count::required}};
constexpr std::array unciteOptions = {paperOption, nodeOption};

constexpr std::array table = {
    Command{
        .name = "papers",
        .summary = "List the papers saved to the project, and the nodes that cite them",
        .example = "veltry papers --all",
        .hasJSON = true,
        .options = listOptions,
        .run = &list},
    Command{
        .name = "papers search",
        .summary = "Search published papers by words of their titles and abstracts",
        .example = "veltry papers search direct preference optimization",
        .hasJSON = true,
        .options = searchOptions,
        .run = &search},
    Command{
        .name = "papers show",
        .summary = "Show a paper with its abstract, and the projects to which it is saved",
        .example = "veltry papers show W4385245566",
        .hasJSON = true,
        .options = showOptions,
        .run = &show},
    Command{
        .name = "papers save",
        .summary = "Save papers to the project",
        .example = "veltry papers save W4385245566",
        .options = saveOptions,
        .run = &save},
    Command{
        .name = "papers remove",
        .summary = "Remove papers from the project; citations stay",
        .example = "veltry papers remove W4385245566",
        .options = removeOptions,
        .run = &remove},
    Command{
        .name = "papers cite",
        .summary = "Record that a node relies on a paper; once more replaces the reason",
        .example = "veltry papers cite W4385245566 dpo-loss --reason \"The loss, unchanged.\"",
        .options = citeOptions,
        .run = &cite},
    Command{
        .name = "papers uncite",
        .summary = "Take a citation back",
        .example = "veltry papers uncite W4385245566 dpo-loss",
        .options = unciteOptions,
        .run = &uncite},
    Command{
        .name = "papers download",
        .summary = "Download a paper's open-access PDF, unless it is there, and print its path",
        .example = "xdg-open \"$(veltry papers download W4385245566)\"",
        .options = showOptions,
        .run = &download},
    Command{
        .name = "papers bibtex",
        .summary = "Print a BibTeX entry for each paper that a node cites",
        .example = "veltry papers bibtex >references.bib",
        .hasJSON = true,
        .options = {},
        .run = &bibtex},
};

} // namespace

Family paperCommands()
{
    return table;
}

} // namespace veltry::Commands
