#pragma once

#include "Experiments/Lab.h"
#include "VeltryTools/ToolTable.h"

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace veltry {

/// The face of the lab that an agent sees: nine tools that answer with plain text and say the next step. The rules of
/// the tree are Lab's; here stand the arguments, the waiting and the texts.
///
/// A value that holds nothing across calls and outlives those that wait. Calls run on a connection's executor, each in
/// a task of its own; the store and git block it, only waits give it up.
///
/// To add a tool: a row in the table of LabTools.cpp, with its handler, and the handler's declaration below.
struct LabTools {
    Lab lab;
    std::optional<UUID> conversation{}; ///< a new node records it, and its person is asked; none: nobody can be
    /// Where `settings.toml` lies; read afresh at each run_experiment. None: any number of runs at once.
    std::optional<std::filesystem::path> settings{};
    std::chrono::milliseconds poll = std::chrono::seconds(1);             ///< pause between two looks at the store
    std::chrono::milliseconds questionWait = std::chrono::seconds(600);   ///< how long one ask_user call waits
    std::chrono::milliseconds progressInterval = std::chrono::seconds(5); ///< between two notices of a tool that waits

    /// The table, in the order in which it is shown.
    [[nodiscard]] static const std::vector<Tool>& tools();

    /// Runs the tool of that name. Never fails: a failure is a text as well.
    [[nodiscard]] asio::awaitable<ToolOutcome> call(
        std::string name, JSONValue arguments, Progress progress = {}) const;

    /// The argument readers that all tools share. Arguments that are no object hold no key.
    ///
    /// A text with more than white space in it, as it is. Throws LabError "missing_argument".
    [[nodiscard]] static std::string requiredString(std::string_view key, const JSONValue& arguments);
    /// The same, but anything else counts as absent.
    [[nodiscard]] static std::optional<std::string> optionalString(std::string_view key, const JSONValue& arguments);
    /// A number truncated toward zero or a text that is a decimal integer; anything else counts as absent, and so does
    /// what doesn't fit 64 bits.
    [[nodiscard]] static std::optional<std::int64_t> optionalInt(std::string_view key, const JSONValue& arguments);

private:
    struct Row;
    static const std::vector<Row>& rows();
    using Answer = asio::awaitable<std::string>;

    [[nodiscard]] Answer answer(std::string name, JSONValue arguments, Progress progress) const;
    [[nodiscard]] Answer experimentTree(JSONValue arguments, Progress progress) const;
    [[nodiscard]] Answer createExperiment(JSONValue arguments, Progress progress) const;
    [[nodiscard]] Answer setExperimentNotes(JSONValue arguments, Progress progress) const;
    [[nodiscard]] Answer runExperiment(JSONValue arguments, Progress progress) const;
    [[nodiscard]] Answer waitForRuns(JSONValue arguments, Progress progress) const;
    [[nodiscard]] Answer getRun(JSONValue arguments, Progress progress) const;
    [[nodiscard]] Answer cancelRun(JSONValue arguments, Progress progress) const;
    [[nodiscard]] Answer archiveExperiment(JSONValue arguments, Progress progress) const;
    [[nodiscard]] Answer askUser(JSONValue arguments, Progress progress) const;
};

} // namespace veltry
