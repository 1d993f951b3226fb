#include "Projects/Paper.h"

#include "Projects/JSONFields.h"

namespace veltry {

JSONValue toJSON(const Paper& paper)
{
    JSONFields fields;
    fields.set("id", paper.id);
    fields.set("title", paper.title);
    fields.set("authors", JSONValue::Array(paper.authors.begin(), paper.authors.end()));
    fields.set("year", paper.year);
    fields.set("venue", paper.venue);
    fields.set("citations", paper.citations);
    fields.set("doi", paper.doi);
    fields.set("url", paper.url);
    fields.set("pdfURL", paper.pdfURL);
    fields.set("abstract", paper.abstract);
    return fields.take();
}

std::optional<Paper> paperFromJSON(const JSONValue& value)
{
    JSONFields fields(value);
    Paper paper{
        .id = fields.string("id"),
        .title = fields.string("title"),
        .authors = fields.strings("authors"),
        .year = fields.optional("year", &JSONFields::integer),
        .venue = fields.optional("venue", &JSONFields::string),
        .citations = fields.integer("citations"),
        .doi = fields.optional("doi", &JSONFields::string),
        .url = fields.nonEmptyString("url"), // no text without a character is an address
        .pdfURL = fields.optional("pdfURL", &JSONFields::nonEmptyString),
        .abstract = fields.optional("abstract", &JSONFields::string),
    };
    return fields.isWhole() ? std::optional(std::move(paper)) : std::nullopt;
}

} // namespace veltry
