#include "Base/JSONValue.h"
#include "LineProcess.h"
#include "Programs.h"
#include "Rows.h"

#include <fmt/format.h>

#include <stdexcept>
#include <string>
#include <vector>

namespace veltry::bench {

namespace {

constexpr int calls = 5'000;

/// Requests that are sent without waiting for the answers, and a bare loop that gives the same answers to the same
/// lines; the time of one. `members` stand beside "jsonrpc" and "id".
Measured pipelined(const Workplace& place, std::string_view members)
{
    const Lab lab = makeLab(place.folder, place.folder / "project");
    std::string requests;
    for (int id = 0; id < calls; ++id)
        requests += fmt::format("{{\"jsonrpc\":\"2.0\",\"id\":{},{}}}\n", id, members);
    const std::string first = requests.substr(0, requests.find('\n') + 1);
    LineProcess server(place.tools, serverArguments(lab));
    server.send(first);
    const std::string answer = server.readLine();
    const JSONValue parsed = JSONValue::parse(answer);
    const JSONValue& result = *parsed.find("result");
    std::vector<std::string> said;
    if (const JSONValue* content = result.find("content"))
        said = {*content->array()->front().find("text")->string(), result.find("isError")->text()};
    LineProcess loop(place.tools.parent_path() / "answer-loop", said);
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
    return pipelined(place, R"("method":"tools/call","params":{"name":"experiment_tree","arguments":{}})");
}

Measured pings(const Workplace& place)
{
    return pipelined(place, R"("method":"ping")");
}

Measured refusedCalls(const Workplace& place)
{
    // Without a title.
    return pipelined(place, R"("method":"tools/call","params":{"name":"create_experiment","arguments":{}})");
}

} // namespace veltry::bench
