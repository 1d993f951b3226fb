#pragma once

#include "Experiments/Lab.h"
#include "Literature/PaperFiles.h"
#include "Literature/PaperSearch.h"
#include "VeltryTools/Tool.h"

#include <memory>
#include <string>
#include <vector>

namespace veltry {

/// The tools for the published literature: search, read, save, cite and download papers.
///
/// A value that holds nothing across calls. Calls run on a connection's executor; the store blocks it, the network
/// doesn't. A failed call leaves nothing behind in the store.
///
/// To add a tool: a row in the table of PaperTools.cpp, with its handler, and the handler's declaration below.
struct PaperTools {
    std::shared_ptr<const Lab> lab; ///< for the project, its nodes and the store
    std::shared_ptr<const PaperSearch> search;
    PaperFiles files;

    /// The tools, in the order in which they are shown. They share a copy of this value.
    [[nodiscard]] std::vector<Tool> tools() const;

private:
    using Answer = asio::awaitable<std::string>;

    [[nodiscard]] Answer searchPapers(JSONValue arguments) const;
    [[nodiscard]] Answer getPaper(JSONValue arguments) const;
    [[nodiscard]] Answer savePaper(JSONValue arguments) const;
    [[nodiscard]] Answer citePaper(JSONValue arguments) const;
    [[nodiscard]] std::string listLibrary(const JSONValue& arguments) const;
    [[nodiscard]] Answer downloadPaper(JSONValue arguments) const;

    /// The paper that `paper_id` names: of the library of all projects, which costs no search, or else of the service.
    /// Throws LabError.
    [[nodiscard]] asio::awaitable<Paper> paper(JSONValue arguments) const;
    [[nodiscard]] bool isSaved(const Paper& paper) const;
};

} // namespace veltry
