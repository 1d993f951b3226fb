#include "Base/JSONValue.h"
#include "LineProcess.h"
#include "Programs.h"
#include "Rows.h"

#include <fmt/format.h>

#include <stdexcept>

namespace veltry::bench {

namespace {

constexpr int calls = 5'000;

std::string requestsOf(std::string_view tool)
{
    std::string lines;
    for (int id = 0; id < calls; ++id)
        lines += fmt::format(
            R"({{"jsonrpc":"2.0","id":{},"method":"tools/call","params":{{"name":"{}","arguments":{{}}}}}})"
            "\n",
            id, tool);
    return lines;
}

/// Calls of one tool that are sent without waiting for the answers, and a bare loop that gives the same answers to the
/// same lines; the time of one call.
Measured pipelined(const Workplace& place, std::string_view tool)
{
    const Lab lab = makeLab(place.folder, place.folder / "project");
    const std::string requests = requestsOf(tool);
    const std::string first = requests.substr(0, requests.find('\n') + 1);
    LineProcess server(place.tools, serverArguments(lab));
    server.send(first);
    const std::string answer = server.readLine();
    const JSONValue parsed = JSONValue::parse(answer);
    const JSONValue& result = *parsed.find("result");
    LineProcess loop(
        place.tools.parent_path() / "answer-loop",
        {*result.find("content")->array()->front().find("text")->string(), result.find("isError")->text()});
    loop.send(first);
    if (loop.readLine() != answer)
        throw std::runtime_error("the loop answers otherwise than the server");
    const auto timed = [&](LineProcess& process) {
        return [&] { return secondsOf([&] { process.exchange(requests, calls); }) / calls; };
    };
    return interleaved(25, timed(server), timed(loop), least);
}

} // namespace

Measured emptyTreeCalls(const Workplace& place)
{
    return pipelined(place, "experiment_tree");
}

Measured refusedCalls(const Workplace& place)
{
    return pipelined(place, "create_experiment"); // without a title
}

} // namespace veltry::bench
