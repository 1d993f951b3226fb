#include "Literature/OpenAlexAnswer.h"

#include "Base/Address.h"
#include "Base/JSONValue.h"
#include "Base/Text.h"
#include "Literature/OpenAlex.h"
#include "Literature/OpenAlexDocument.h"

#include <algorithm>
#include <unordered_map>
#include <utility>

namespace veltry::OpenAlexAnswer {

namespace {

using OpenAlexDocument::integerOf;
using OpenAlexDocument::unreadable;

constexpr std::string_view doiResolver = "https://doi.org/";
constexpr std::string_view arXiv = "arxiv.org";

/// The members of one object of the answer. Those that may be absent give null when they are missing or null.
class Members {
public:
    explicit Members(const JSONValue& value) : value_(value)
    {
        if (!value.object())
            unreadable();
    }

    const JSONValue* find(std::string_view key) const
    {
        const JSONValue* member = value_.find(key);
        return member && !member->isNull() ? member : nullptr;
    }

    const JSONValue& required(std::string_view key) const
    {
        const JSONValue* member = find(key);
        if (!member)
            unreadable();
        return *member;
    }

    const std::string* text(std::string_view key) const { return typed(key, &JSONValue::string); }

    const JSONValue::Array* list(std::string_view key) const { return typed(key, &JSONValue::array); }

    const JSONValue::Object* map(std::string_view key) const { return typed(key, &JSONValue::object); }

    std::optional<std::int64_t> integer(std::string_view key) const;

private:
    template <typename Type>
    const Type* typed(std::string_view key, const Type* (JSONValue::*payload)() const noexcept) const
    {
        const JSONValue* member = find(key);
        if (!member)
            return nullptr;
        const Type* found = (member->*payload)();
        if (!found)
            unreadable();
        return found;
    }

    const JSONValue& value_;
};

std::optional<std::int64_t> Members::integer(std::string_view key) const
{
    const JSONValue* member = find(key);
    return member ? std::optional(integerOf(*member)) : std::nullopt;
}

std::optional<std::string> copied(const std::string* text)
{
    return text ? std::optional(*text) : std::nullopt;
}

struct Location {
    std::optional<std::string> landingPage;
    std::optional<std::string> pdf;
    bool hasSource = false;
    std::optional<std::string> sourceName;
};

Location locationOf(const JSONValue& value)
{
    const Members members(value);
    Location location;
    location.landingPage = copied(members.text("landing_page_url"));
    location.pdf = copied(members.text("pdf_url"));
    if (const JSONValue* source = members.find("source")) {
        location.hasSource = true;
        location.sourceName = copied(Members(*source).text("display_name"));
    }
    return location;
}

Location optionalLocation(const Members& work, std::string_view key)
{
    const JSONValue* value = work.find(key);
    return value ? locationOf(*value) : Location();
}

std::vector<std::string> authorsOf(const Members& work)
{
    std::vector<std::string> authors;
    if (const JSONValue::Array* authorships = work.list("authorships"))
        for (const JSONValue& authorship : *authorships) {
            const Members author(Members(authorship).required("author"));
            if (const std::string* name = author.text("display_name"))
                authors.push_back(*name);
        }
    return authors;
}

/// The last piece of a work's address, which ends in its id.
std::string shortID(const std::string& id)
{
    const std::vector<std::string_view> pieces = text::split(id, '/');
    const auto last =
        std::find_if(pieces.rbegin(), pieces.rend(), [](std::string_view piece) { return !piece.empty(); });
    return last == pieces.rend() ? id : std::string(*last);
}

/// Without as many characters at its start as `other` has.
std::string_view withoutAsMany(std::string_view name, std::string_view other)
{
    while (!other.empty() && !name.empty()) {
        other.remove_prefix(text::firstCharacters(other, 1).size());
        name.remove_prefix(text::firstCharacters(name, 1).size());
    }
    return name;
}

/// A source that lists its title twice, separated by a slash, gives it once.
std::string cleanedVenue(const std::string& name)
{
    for (const std::string_view piece : text::split(name, '/')) {
        if (piece.empty())
            continue;
        if (piece.size() < name.size() && withoutAsMany(name, piece).contains(piece))
            return std::string(text::trimmed(piece));
        break;
    }
    return name;
}

std::optional<std::string> pdfOf(const Location& best, const Location& primary, const std::vector<Location>& locations)
{
    std::optional<std::string> first;
    for (const Location& location : locations) {
        std::optional<std::string> candidate = location.pdf ? Address::absolute(*location.pdf) : std::nullopt;
        // Before the publisher's copy: arXiv's is free for everybody and answers programs with the PDF itself.
        if (candidate && Address::host(*candidate) == arXiv)
            return candidate;
        if (!first)
            first = std::move(candidate);
    }
    const std::optional<std::string>& named = best.pdf ? best.pdf : primary.pdf;
    if (std::optional<std::string> address = named ? Address::absolute(*named) : std::nullopt)
        return address;
    return first;
}

/// The whole work is read before the title is looked at, since one wrong member spoils the answer.
std::optional<Paper> paperOf(const JSONValue& value)
{
    const Members work(value);
    const JSONValue& id = work.required("id");
    if (!id.string())
        unreadable();
    const std::string title = copied(work.text("display_name")).value_or("");
    const Location primary = optionalLocation(work, "primary_location");
    const Location best = optionalLocation(work, "best_oa_location");
    std::vector<Location> locations;
    if (const JSONValue::Array* list = work.list("locations"))
        for (const JSONValue& location : *list)
            locations.push_back(locationOf(location));

    Paper paper{
        .id = shortID(*id.string()),
        .title = std::string(text::trimmed(title)),
        .authors = authorsOf(work),
        .year = work.integer("publication_year"),
        .citations = work.integer("cited_by_count").value_or(0),
        .url = {},
        .pdfURL = pdfOf(best, primary, locations),
        .abstract = copied(work.text("abstract_inverted_index")),
    };
    // Where the first place names no source, that of the free copy may.
    if (const Location& location = primary.hasSource ? primary : best; location.sourceName)
        paper.venue = cleanedVenue(*location.sourceName);
    if (const std::string* doi = work.text("doi"))
        paper.doi = text::replacingAll(*doi, doiResolver, "");

    // A DOI outlives the page that it leads to now.
    if (paper.doi)
        paper.url = Address::absolute(std::string(doiResolver) + *paper.doi).value();
    else if (
        std::optional<std::string> page = primary.landingPage ? Address::absolute(*primary.landingPage) : std::nullopt)
        paper.url = std::move(*page);
    else
        paper.url = Address::absolute(OpenAlex::site + paper.id).value();
    return paper.title.empty() ? std::nullopt : std::optional(std::move(paper));
}

/// The title's letters and numbers in lower case.
std::u32string titleKey(const Paper& paper)
{
    std::u32string key = text::scalars(text::lowercased(paper.title));
    std::erase_if(key, [](char32_t scalar) { return !text::isLetterOrNumber(scalar); });
    return key;
}

std::vector<Paper> merged(std::vector<Paper> papers)
{
    std::vector<Paper> kept;
    std::unordered_map<std::u32string, std::size_t> seen; // to the index in `kept`
    for (Paper& paper : papers) {
        const auto [place, isNew] = seen.emplace(titleKey(paper), kept.size());
        if (isNew)
            kept.push_back(std::move(paper));
        // A preprint and its publication are two works. The first has the rank, the other perhaps the free PDF.
        else if (Paper& first = kept[place->second]; !first.pdfURL)
            first.pdfURL = std::move(paper.pdfURL);
    }
    return kept;
}

} // namespace

PaperPage page(std::string_view body)
{
    const JSONValue document = OpenAlexDocument::page(body);
    const Members answer(document);
    const std::int64_t total = integerOf(Members(answer.required("meta")).required("count"));
    const JSONValue::Array* works = answer.required("results").array();
    if (!works)
        unreadable();
    std::vector<Paper> papers;
    for (const JSONValue& work : *works)
        if (std::optional<Paper> paper = paperOf(work))
            papers.push_back(std::move(*paper));
    return {.papers = merged(std::move(papers)), .total = total};
}

std::optional<Paper> work(std::string_view body)
{
    return paperOf(OpenAlexDocument::work(body));
}

} // namespace veltry::OpenAlexAnswer
