#pragma once

#include <span>
#include <string_view>

namespace veltry {

class Database;

/// The schema of the store, as the steps that lead to it. The file outlives any one version of the program: a new
/// version of the schema appends a step, and the earlier ones never change.
namespace Migrations {

struct Migration {
    std::string_view identifier; ///< its row in `grdb_migrations` once it is applied
    std::string_view script;
};

/// In the order in which they are applied, which isn't the order of their texts.
[[nodiscard]] std::span<const Migration> all();

/// Fails, before anything is written, with ProjectStoreError (madeByNewerVeltry) if the file holds a migration that
/// isn't in the list.
void refuseNewer(Database& database);

/// Applies what is missing, each step in a transaction of its own, so that a step which fails leaves the ones before
/// it. Several processes may do so at the same moment. Ends after the step `last`, if one is named. Throws
/// DatabaseError.
void apply(Database& database, std::string_view last = {});

} // namespace Migrations
} // namespace veltry
