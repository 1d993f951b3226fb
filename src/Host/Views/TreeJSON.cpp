#include "Host/Views/TreeJSON.h"

#include "Host/Views/NodeState.h"
#include "Host/Views/RecordJSON.h"

namespace veltry::TreeJSON {

namespace {

/// The array of what `make` makes of each.
template <typename Range, typename Make>
JSONValue listOf(const Range& range, Make make)
{
    JSONValue::Array elements;
    for (const auto* each : range)
        elements.push_back(make(*each));
    return elements;
}

} // namespace

JSONValue of(const ExperimentTree::Node& node)
{
    JSONValue document = RecordJSON::of(node.record);
    document.object()->emplace("state", stateText(nodeState(node)));
    document.object()->emplace("frozen", node.isFrozen());
    return document;
}

JSONValue brief(const ExperimentTree::Node& node)
{
    JSONValue document = of(node);
    document.object()->emplace("runs", listOf(node.runs, [](const Run& run) {
                                   return JSONValue::object(
                                       {{"number", run.number}, {"status", JSONValue(toWord(run.status))}});
                               }));
    document.object()->emplace(
        "papers", listOf(node.citations, [](const Citation& citation) { return JSONValue(citation.paper.id); }));
    return document;
}

JSONValue full(const ExperimentTree::Node& node, const std::filesystem::path& worktree)
{
    const ExperimentTree::References references = node.references();
    JSONValue document = of(node);
    JSONValue::Object& object = *document.object();
    object.emplace("worktree", worktree.string());
    object.emplace("children", listOf(node.children, [](const ExperimentTree::Node& child) {
                       return JSONValue(child.record.id.text());
                   }));
    object.emplace("runs", listOf(node.runs, [](const Run& run) { return RecordJSON::of(run); }));
    object.emplace(
        "citations", listOf(node.citations, [](const Citation& citation) { return RecordJSON::of(citation); }));
    object.emplace("differences", differences(node.values(), references.parent, references.baseline));
    return document;
}

JSONValue of(const Run& run, const ExperimentTree::Node& node)
{
    JSONValue document = RecordJSON::of(run);
    document.object()->emplace("node", node.record.slug);
    document.object()->emplace("title", node.record.title);
    return document;
}

JSONValue differences(const ResultValues& values, const ResultValues& reference)
{
    JSONValue::Object byKey;
    for (const ResultValue& value : values)
        if (const std::optional<double> above = difference(value, reference))
            byKey.emplace(value.key, *above);
    return byKey;
}

JSONValue differences(const ResultValues& values, const ResultValues& parent, const ResultValues& baseline)
{
    return JSONValue::object({{"parent", differences(values, parent)}, {"baseline", differences(values, baseline)}});
}

} // namespace veltry::TreeJSON
