#pragma once

#include "Projects/Statement.h"

#include <optional>
#include <vector>

namespace veltry {

// Rows as the store's records, by the columns that Projects/RecordFields.h names. A row gives none where it has a text
// that isn't the identifier, the word or the JSON that has to stand there.

/// The record of the row that the statement stands on.
template <typename Record>
[[nodiscard]] std::optional<Record> decodeRow(const Statement& row);

/// The records of all rows that give one, in their order.
template <typename Record>
[[nodiscard]] std::vector<Record> decodeAll(Statement rows);

/// The record of the first row, if there is a row and it gives one.
template <typename Record>
[[nodiscard]] std::optional<Record> decodeFirst(Statement rows);

} // namespace veltry
