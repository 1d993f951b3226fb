#pragma once

#include "Experiments/Lab.h"
#include "Literature/PaperFiles.h"
#include "Literature/PaperSearch.h"
#include "VeltryTools/ToolTable.h"

#include <memory>
#include <string>
#include <vector>

namespace veltry {

/// The tools for the published literature: search, read, save, cite and download papers.
///
/// A value that holds nothing across calls and outlives those that wait. Calls run on a connection's executor, each in
/// a task of its own; the store blocks it, the network doesn't. A failed call leaves nothing behind in the store.
///
/// To add a tool: a row in the table of PaperTools.cpp, with its handler, and the handler's declaration below.
struct PaperTools {
    std::shared_ptr<ProjectStore> store; ///< the lab's
    std::shared_ptr<const PaperSearch> search;
    PaperFiles files;
    Lab lab; ///< for the project and its nodes

    /// The table, in the order in which it is shown.
    [[nodiscard]] static const std::vector<Tool>& tools();

    /// Runs the tool of that name. Never fails: a failure is a text as well.
    [[nodiscard]] asio::awaitable<ToolOutcome> call(std::string name, JSONValue arguments) const;

private:
    struct Row;
    static const std::vector<Row>& rows();
    using Answer = asio::awaitable<std::string>;

    [[nodiscard]] Answer answer(std::string name, JSONValue arguments) const;
    [[nodiscard]] Answer searchPapers(JSONValue arguments) const;
    [[nodiscard]] Answer getPaper(JSONValue arguments) const;
    [[nodiscard]] Answer savePaper(JSONValue arguments) const;
    [[nodiscard]] Answer citePaper(JSONValue arguments) const;
    [[nodiscard]] Answer listLibrary(JSONValue arguments) const;
    [[nodiscard]] Answer downloadPaper(JSONValue arguments) const;

    /// The paper that `paper_id` names: of the library of all projects, which costs no search, or else of the service.
    /// Throws LabError.
    [[nodiscard]] asio::awaitable<Paper> paper(JSONValue arguments) const;
    [[nodiscard]] bool isSaved(const Paper& paper) const;
};

} // namespace veltry
