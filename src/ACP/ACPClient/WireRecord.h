#pragma once

#include "Base/DecodingFailure.h"
#include "Base/JSONValue.h"

namespace veltry {

/// Reads a record of the Agent Client Protocol. Keys that the record doesn't name are ignored, and an optional field
/// is absent where its key is missing or holds null. Throws DecodingFailure where a field doesn't read and its record
/// doesn't say that it may. Defined for the records of this folder.
template <typename Record>
[[nodiscard]] Record decoded(const JSONValue& value);

/// The record as JSON; optional fields that are absent are left out. Defined for the records of this folder, but for
/// the answers that only ever come in.
template <typename Record>
[[nodiscard]] JSONValue encoded(const Record& record);

} // namespace veltry
