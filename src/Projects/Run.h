#pragma once

#include "Base/Date.h"
#include "Base/JSONValue.h"
#include "Base/UUID.h"
#include "Base/Words.h"

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>

namespace veltry {

/// One execution of an experiment's command on one commit.
struct Run {
    enum class Status { queued, running, succeeded, failed, cancelled };

    UUID id;
    UUID experimentID;
    UUID projectID;
    std::int64_t number = 0; ///< position in the project, across all its experiments, from 1
    Status status = Status::queued;
    std::string commit;              ///< the commit that was run
    std::string command;             ///< the experiment's command when the run was made
    std::filesystem::path directory; ///< the run folder
    std::optional<std::int32_t> pid; ///< the process of the run, once it has started
    std::optional<std::int32_t> exitCode;
    std::optional<std::string> result; ///< the text of the run's result file
    bool cancelRequested = false;
    Date createdAt;
    std::optional<Date> endedAt;

    /// The files of the run folder that a reader looks for. Whether they exist is another question.
    [[nodiscard]] std::filesystem::path log() const { return directory / "log"; }

    [[nodiscard]] std::filesystem::path resultFile() const { return directory / "result.json"; }

    [[nodiscard]] std::filesystem::path telemetryFile() const { return directory / "telemetry.jsonl"; }

    /// The folder with the snapshot of the commit.
    [[nodiscard]] std::filesystem::path source() const { return directory / "src"; }

    /// True if the run left a result.
    [[nodiscard]] bool answered() const { return result.has_value(); }

    [[nodiscard]] bool isFinished() const { return isFinished(status); }

    /// True for a status that never changes again: succeeded, failed, cancelled.
    [[nodiscard]] static constexpr bool isFinished(Status status)
    {
        return status != Status::queued && status != Status::running;
    }

    friend bool operator==(const Run&, const Run&) = default;
};

/// As it is stored.
template <>
inline constexpr auto wordsOf<Run::Status> = std::to_array<Word<Run::Status>>({
    {Run::Status::queued, "queued"},
    {Run::Status::running, "running"},
    {Run::Status::succeeded, "succeeded"},
    {Run::Status::failed, "failed"},
    {Run::Status::cancelled, "cancelled"},
});

/// An object with the names of the fields as keys: identifiers, status and folder as texts, dates as seconds since
/// 2001, absent ones left out.
[[nodiscard]] JSONValue toJSON(const Run& run);
/// Nothing if a key that toJSON() always writes is missing or of another type.
[[nodiscard]] std::optional<Run> runFromJSON(const JSONValue& value);

} // namespace veltry
