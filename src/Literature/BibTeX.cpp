#include "Literature/BibTeX.h"

#include "Base/Text.h"
#include "Base/TextMarks.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <set>
#include <string_view>
#include <utility>

namespace veltry::BibTeX {

namespace {

/// What TeX would take for something else. Braces go without any of their own, since BibTeX counts escaped ones too.
constexpr std::array<std::pair<char, std::string_view>, 13> escapes = {{
    {'\\', "\\textbackslash{}"},
    {'{', "\\textbraceleft{}"},
    {'}', "\\textbraceright{}"},
    {'~', "\\textasciitilde{}"},
    {'^', "\\textasciicircum{}"},
    {'<', "\\textless{}"},
    {'>', "\\textgreater{}"},
    {'|', "\\textbar{}"},
    {'&', "\\&"},
    {'%', "\\%"},
    {'$', "\\$"},
    {'#', "\\#"},
    {'_', "\\_"},
}};

/// Words that begin many titles and tell none apart.
constexpr std::array<std::string_view, 12> smallWords = {"a",  "an", "and", "for", "from", "how",
                                                         "in", "of", "on",  "the", "to",   "with"};

constexpr std::string_view doiResolver = "https://doi.org/";

std::string escaped(std::string_view given)
{
    std::string result;
    for (const char c : text::oneLine(text::trimmed(given))) {
        const auto* const found = std::ranges::find(escapes, c, &std::pair<char, std::string_view>::first);
        if (found == escapes.end())
            result += c;
        else
            result += found->second;
    }
    return result;
}

/// An address is taken as it stands, so what would end the field goes as percent codes.
std::string address(std::string_view given)
{
    std::string result;
    for (const char c : text::trimmed(given)) {
        const bool isPlain = c > ' ' && c != '\x7f' && c != '{' && c != '}' && c != '\\' && c != '"';
        result += isPlain ? std::string(1, c) : fmt::format("%{:02X}", static_cast<unsigned char>(c));
    }
    return result;
}

/// "and" parts the names of a list and a comma the parts of a name; one that holds either is one piece in braces.
std::string author(std::string_view name)
{
    const std::string lower = text::lowercased(text::oneLine(name));
    const bool isPlain = !lower.contains(',') && !lower.contains(" and ") && !lower.starts_with("and ") &&
                         !lower.ends_with(" and") && lower != "and" && lower != "others";
    return isPlain ? escaped(name) : fmt::format("{{{}}}", escaped(name));
}

/// The letters and digits of ASCII that are left without accents, in lower case.
std::string plain(std::string_view given)
{
    std::string result = text::lowercased(text::withoutMarks(given));
    std::erase_if(result, [](char c) { return !((c >= 'a' && c <= 'z') || (c >= '0' && c <= '9')); });
    return result;
}

/// The last name of the first author, or of one who has the last name in front of a comma.
std::string firstAuthor(const Paper& paper)
{
    if (paper.authors.empty())
        return "";
    const std::string name = text::oneLine(text::trimmed(paper.authors.front()));
    if (const std::size_t comma = name.find(','); comma != std::string::npos)
        return plain(std::string_view(name).substr(0, comma));
    return plain(text::split(name, ' ').back());
}

std::string titleWord(const Paper& paper)
{
    const std::string title = text::replacingAll(text::oneLine(paper.title), "-", " ");
    for (const std::string_view word : text::split(title, ' '))
        if (std::string name = plain(word); !name.empty() && std::ranges::find(smallWords, name) == smallWords.end())
            return name;
    return "";
}

std::string baseKey(const Paper& paper)
{
    const std::string key = firstAuthor(paper) + (paper.year ? fmt::format("{}", *paper.year) : "") + titleWord(paper);
    const bool hasWords = std::ranges::any_of(key, [](char c) { return c >= 'a' && c <= 'z'; });
    return hasWords ? key : plain(paper.id) + key; // names and title in another script
}

/// "", "b", ... "z", "2b", ...: no "a", since the first of equal keys has nothing after it.
std::string suffix(int number)
{
    constexpr int letters = 26;
    if (number == 0)
        return "";
    const std::string letter(1, static_cast<char>('a' + number % letters));
    return number < letters ? letter : fmt::format("{}{}", number / letters + 1, letter);
}

std::string entry(const Paper& paper, const std::string& key)
{
    std::vector<std::string> authors;
    for (const std::string& name : paper.authors)
        if (!text::isBlank(name))
            authors.push_back(author(name));
    std::string fields;
    const auto field = [&](std::string_view name, const std::string& value) {
        if (!value.empty())
            fields += fmt::format("  {} = {{{}}},\n", name, value);
    };
    field("title", fmt::format("{{{}}}", escaped(paper.title))); // twice in braces, so that styles keep the capitals
    field("author", text::joined(authors, " and "));
    field("year", paper.year ? fmt::format("{}", *paper.year) : "");
    field("journal", escaped(paper.venue.value_or("")));
    field("doi", address(text::replacingAll(paper.doi.value_or(""), doiResolver, "")));
    field("url", address(paper.url));
    return fmt::format("@{}{{{},\n{}}}\n", paper.venue ? "article" : "misc", key, fields);
}

} // namespace

std::vector<std::string> keys(std::span<const Paper> papers)
{
    std::set<std::string> taken;
    std::vector<std::string> keys;
    for (const Paper& paper : papers) {
        const std::string base = baseKey(paper);
        int number = 0;
        while (!taken.insert(base + suffix(number)).second)
            ++number;
        keys.push_back(base + suffix(number));
    }
    return keys;
}

std::string entries(std::span<const Paper> papers)
{
    const std::vector<std::string> names = keys(papers);
    std::string text;
    for (std::size_t index = 0; index < papers.size(); ++index)
        text += (index == 0 ? "" : "\n") + entry(papers[index], names[index]);
    return text;
}

} // namespace veltry::BibTeX
