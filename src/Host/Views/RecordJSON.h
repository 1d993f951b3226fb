#pragma once

#include "Base/JSONValue.h"
#include "Projects/Conversation.h"
#include "Projects/Experiment.h"
#include "Projects/Paper.h"
#include "Projects/Project.h"
#include "Projects/Question.h"
#include "Projects/Run.h"

/// Records as --json shows them: the fields' names as keys, dates in ISO 8601 and UTC, absent fields left out.
namespace veltry::RecordJSON {

[[nodiscard]] JSONValue of(const Project& project);
[[nodiscard]] JSONValue of(const Conversation& conversation);
[[nodiscard]] JSONValue of(const Experiment& experiment);
[[nodiscard]] JSONValue of(const AgentQuestions& round);
[[nodiscard]] JSONValue of(const Citation& citation);
/// `result` is the document that the run left; its text where that is no JSON.
[[nodiscard]] JSONValue of(const Run& run);

} // namespace veltry::RecordJSON
