#include "Projects/ProjectStore.h"

#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <string_view>

using namespace veltry;

namespace {

/// Until standard input ends, which it does for all processes of a test at the same moment.
void waitForStart()
{
    char byte = 0;
    while (::read(STDIN_FILENO, &byte, 1) > 0)
        continue;
}

void insertRuns(ProjectStore& store, const Experiment& experiment, int count)
{
    for (int index = 0; index < count; ++index)
        store.insertRun(UUID::random(), experiment, "commit", "/runs");
}

} // namespace

/// store-process STORE [EXPERIMENT COUNT]: opens the store, and inserts that many runs of the experiment.
int main(int count, char** arguments)
{
    try {
        waitForStart();
        ProjectStore store(arguments[1]);
        if (count == 4)
            insertRuns(store, store.experiment(UUID::parse(arguments[2]).value()).value(), std::atoi(arguments[3]));
        return 0;
    } catch (const std::exception& failure) {
        std::fprintf(stderr, "%s\n", describe(failure).c_str());
        return 1;
    }
}
