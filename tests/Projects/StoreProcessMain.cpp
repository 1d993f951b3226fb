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

} // namespace

/// store-process STORE [runs EXPERIMENT COUNT | ask CONVERSATION COUNT]: opens the store, and inserts that many runs of
/// the experiment, or asks that many different rounds in the conversation.
int main(int count, char** arguments)
{
    try {
        waitForStart();
        ProjectStore store(arguments[1]);
        if (count < 5)
            return 0;
        const UUID id = UUID::parse(arguments[3]).value();
        const int times = std::atoi(arguments[4]);
        const bool runs = std::string_view(arguments[2]) == "runs";
        for (int index = 0; index < times; ++index)
            if (runs)
                store.insertRun(UUID::random(), store.experiment(id).value(), "commit", "/runs");
            else
                store.ask({{.question = std::to_string(index) + "?"}}, id);
        return 0;
    } catch (const std::exception& failure) {
        std::fprintf(stderr, "%s\n", describe(failure).c_str());
        return 1;
    }
}
