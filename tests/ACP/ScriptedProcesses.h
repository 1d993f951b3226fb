#pragma once

#include "Base/Text.h"
#include "Platform/Files.h"
#include "Support/Eventually.h"
#include "Support/EventuallyOnExecutor.h"
#include "Support/ProcessResources.h"
#include "Support/RunOnExecutor.h"
#include "Support/TemporaryFolder.h"

#include <gmock/gmock.h>

#include <csignal>
#include <string>
#include <vector>

namespace veltry::test {

/// For tests of programs that are scripts, which write the ids of their processes to `children` in the test's folder, a
/// line each.
class ScriptedProcesses : public testing::Test {
protected:
    ScriptedProcesses() { std::signal(SIGPIPE, SIG_IGN); }
    ~ScriptedProcesses() override
    {
        for (const pid_t child : children())
            ::kill(child, SIGKILL);
        std::signal(SIGPIPE, SIG_DFL);
    }

    std::filesystem::path program(const std::string& name, const std::string& script = "") const
    {
        Files::createFolders((folder / name).parent_path());
        Files::writeAtomically(folder / name, "#!/bin/sh\n" + script + "\n");
        std::filesystem::permissions(folder / name, std::filesystem::perms::owner_all);
        return folder / name;
    }

    [[nodiscard]] std::vector<pid_t> children() const
    {
        std::vector<pid_t> result;
        const std::string list = Files::readIfPossible(folder / "children").value_or("");
        for (const std::string_view line : text::split(list, '\n'))
            if (const auto pid = text::integer(line))
                result.push_back(static_cast<pid_t>(*pid));
        return result;
    }

    void expectChildrenToEnd() const
    {
        for (const pid_t child : children())
            EXPECT_TRUE(eventually([&] { return ::kill(child, 0) != 0; }));
    }

    /// Runs the coroutine and waits until nothing of it is left in this process.
    template <typename Body>
    void runLeavingNothing(Body body) const
    {
        runOnExecutor([&](const asio::any_io_executor& executor) -> asio::awaitable<void> {
            const asio::steady_timer first(executor); // brings the executor's own descriptors
            const ProcessResources before = ProcessResources::now();
            co_await body(executor);
            const std::function<bool()> allGone = [&] { return ProcessResources::now() == before; };
            const bool gone = co_await eventuallyOnExecutor(allGone);
            EXPECT_TRUE(gone) << ProcessResources::now() << ", before " << before;
        });
    }

    /// Drops an executor on which `start` has begun something once so many children are there: all of it has to go.
    template <typename Start>
    void expectToEndWithTheExecutor(std::size_t count, Start start) const
    {
        const ProcessResources before = ProcessResources::now();
        {
            asio::io_context context(1);
            const auto held = start(context.get_executor());
            ASSERT_TRUE(eventually([&] {
                context.poll();
                return children().size() == count;
            }));
        }
        expectChildrenToEnd();
        EXPECT_EQ(ProcessResources::now(), before);
    }

    TemporaryFolder folder;
};

} // namespace veltry::test
