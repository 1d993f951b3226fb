#pragma once

#include "Projects/Database.h"
#include "Projects/ProjectStore.h"
#include "Support/TemporaryFolder.h"

#include <gmock/gmock.h>

#include <filesystem>
#include <string>
#include <vector>

namespace veltry::test {

/// Starts `count` processes that open the store at the same moment, and waits for them. `work` is what each one does
/// there: nothing, {"runs", experiment, how many} or {"ask", conversation, how many rounds}. Returns what the failed
/// ones said.
[[nodiscard]] std::vector<std::string> inProcesses(
    int count, const std::filesystem::path& store, const std::vector<std::string>& work = {});

/// Runs statements on the store's file from outside.
template <typename... Arguments>
void execute(const std::filesystem::path& store, std::string_view sql, const Arguments&... arguments)
{
    Database(store).withConnection([&](Connection& connection) { connection.execute(sql, arguments...); });
}

/// The rows of a query from outside, their columns parted by "|" as the sqlite3 shell does it.
[[nodiscard]] std::vector<std::string> rows(
    const std::filesystem::path& store, const std::string& sql, int columns = 1);

/// The failure that a body must throw.
template <typename Body>
[[nodiscard]] DatabaseError failureOf(Body body)
{
    try {
        body();
    } catch (const DatabaseError& failure) {
        return failure;
    }
    ADD_FAILURE() << "nothing was thrown";
    return DatabaseError(0, "");
}

/// A new store, and ways past it to its file.
class StoreTest : public testing::Test {
protected:
    /// An experiment of the project that isn't in the store yet.
    [[nodiscard]] static Experiment makeExperiment(const UUID& projectID, const std::string& slug);

    /// The same in the store.
    Experiment insertExperiment(const UUID& projectID, const std::string& slug);

    template <typename... Arguments>
    void execute(std::string_view sql, const Arguments&... arguments) const
    {
        test::execute(store.path(), sql, arguments...);
    }

    [[nodiscard]] std::vector<std::string> rows(const std::string& sql, int columns = 1) const
    {
        return test::rows(store.path(), sql, columns);
    }

    TemporaryFolder folder;
    ProjectStore store{folder / "store"};
};

} // namespace veltry::test
