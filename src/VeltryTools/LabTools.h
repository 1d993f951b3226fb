#pragma once

#include "Experiments/Lab.h"
#include "VeltryTools/Tool.h"

#include <chrono>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace veltry {

/// The face of the lab that an agent sees: nine tools that answer with plain text and say the next step. The rules of
/// the tree are Lab's; here stand the order of the calls and the waiting.
///
/// A value that holds nothing across calls. Calls run on a connection's executor; the store and git block it, only
/// waits give it up.
///
/// To add a tool: a row in the table of LabTools.cpp, with its handler, and the handler's declaration below.
struct LabTools {
    std::shared_ptr<const Lab> lab;
    std::optional<UUID> conversation{}; ///< a new node records it, and its person is asked; none: nobody can be
    /// Where `settings.toml` lies; read afresh at each run_experiment. None: any number of runs at once.
    std::optional<std::filesystem::path> settings{};
    std::chrono::milliseconds poll = std::chrono::seconds(1);             ///< pause between two looks at the store
    std::chrono::milliseconds questionWait = std::chrono::seconds(600);   ///< how long one ask_user call waits
    std::chrono::milliseconds progressInterval = std::chrono::seconds(5); ///< between two notices of a tool that waits

    /// The tools, in the order in which they are shown. They share a copy of this value.
    [[nodiscard]] std::vector<Tool> tools() const;

private:
    using Answer = asio::awaitable<std::string>;

    [[nodiscard]] std::string experimentTree(const JSONValue& arguments) const;
    [[nodiscard]] std::string createExperiment(const JSONValue& arguments) const;
    [[nodiscard]] std::string setExperimentNotes(const JSONValue& arguments) const;
    [[nodiscard]] std::string runExperiment(const JSONValue& arguments) const;
    [[nodiscard]] Answer waitForRuns(JSONValue arguments, Progress progress) const;
    [[nodiscard]] std::string getRun(const JSONValue& arguments) const;
    [[nodiscard]] std::string cancelRun(const JSONValue& arguments) const;
    [[nodiscard]] std::string archiveExperiment(const JSONValue& arguments) const;
    [[nodiscard]] Answer askUser(JSONValue arguments, Progress progress) const;
};

} // namespace veltry
