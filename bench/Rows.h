#pragma once

#include "Measure.h"

/// The rows of the table, each with what main.cpp says of it. They throw what they meet.
namespace veltry::bench {

// VeltryTools/ServerRows.cpp
[[nodiscard]] Measured serverStart(const Workplace& place);
[[nodiscard]] Measured ping(const Workplace& place);
[[nodiscard]] Measured runExperiment(const Workplace& place);
[[nodiscard]] Measured experimentTree(const Workplace& place);

// VeltryTools/CallRows.cpp
[[nodiscard]] Measured emptyTreeCalls(const Workplace& place);
[[nodiscard]] Measured pings(const Workplace& place);
[[nodiscard]] Measured refusedCalls(const Workplace& place);

// Experiments/ChangesRows.cpp
[[nodiscard]] Measured comparison(const Workplace& place);
[[nodiscard]] Measured diffCommand(const Workplace& place);
[[nodiscard]] Measured largeComparison(const Workplace& place);

// Experiments/SupervisorRows.cpp
[[nodiscard]] Measured supervisorStart(const Workplace& place);
[[nodiscard]] Measured supervisorMemory(const Workplace& place);

// Experiments/RunLogRows.cpp
[[nodiscard]] Measured logTail(const Workplace& place);
[[nodiscard]] Measured stamper(const Workplace& place);

// Experiments/ResourceRows.cpp
[[nodiscard]] Measured resourceReading(const Workplace& place);

// Experiments/TelemetryRows.cpp
[[nodiscard]] Measured telemetryWalk(const Workplace& place);
[[nodiscard]] Measured telemetryRate(const Workplace& place);
[[nodiscard]] Measured telemetryLinesCounted(const Workplace& place);
[[nodiscard]] Measured telemetryNewLine(const Workplace& place);
[[nodiscard]] Measured telemetryMemory(const Workplace& place);
[[nodiscard]] Measured telemetryCharts(const Workplace& place);

// Host/CommandRows.cpp
[[nodiscard]] Measured treeCommand(const Workplace& place);
[[nodiscard]] Measured listCommand(const Workplace& place);
[[nodiscard]] Measured showCommand(const Workplace& place);
[[nodiscard]] Measured showRunCommand(const Workplace& place);
[[nodiscard]] Measured questionsCommand(const Workplace& place);
[[nodiscard]] Measured projectsCommand(const Workplace& place);
[[nodiscard]] Measured conversationsCommand(const Workplace& place);
[[nodiscard]] Measured settingsCommand(const Workplace& place);
[[nodiscard]] Measured logCommand(const Workplace& place);
[[nodiscard]] Measured compareCommand(const Workplace& place);
[[nodiscard]] Measured completeCommand(const Workplace& place);
[[nodiscard]] Measured diskCommand(const Workplace& place);

// Host/WatchRows.cpp
[[nodiscard]] Measured treeWatchIdle(const Workplace& place);
[[nodiscard]] Measured questionsWatchIdle(const Workplace& place);
[[nodiscard]] Measured logFollowIdle(const Workplace& place);
[[nodiscard]] Measured chartsFollowIdle(const Workplace& place);

// Literature/PaperRows.cpp
[[nodiscard]] Measured searchAnswer(const Workplace& place);
[[nodiscard]] Measured paperOfLibrary(const Workplace& place);

// Projects/RunRows.cpp
[[nodiscard]] Measured furtherLook(const Workplace& place);
[[nodiscard]] Measured firstLook(const Workplace& place);
[[nodiscard]] Measured runsOfAllProjects(const Workplace& place);
[[nodiscard]] Measured runByNumber(const Workplace& place);
[[nodiscard]] Measured nextNumber(const Workplace& place);

} // namespace veltry::bench
