#include "Base/Text.h"
#include "Experiments/TelemetryLayout.h"
#include "Platform/Files.h"
#include "Projects/Templates.h"
#include "Support/RunOnExecutor.h"
#include "Support/TestLab.h"

#include <gmock/gmock.h>

namespace veltry {
namespace {

/// A new project from the template, its first baseline and a run of it, as a person would begin.
TEST(Starter, ThePythonBaselineRunsAndReports)
{
    const test::TestLab test;
    test::runOnExecutor([&](const asio::any_io_executor&) -> asio::awaitable<void> {
        const Templates::Archive archive = Templates::archive();
        asio::awaitable<void> work = Templates::fetch("python-baseline", test.repository.path(), archive);
        co_await std::move(work);
    });
    test.repository.commit();
    const veltry::Run run = test.finished(test.lab.launch(test.baseline("python3 train.py").id.text(), 0).id);
    EXPECT_EQ(run.status, veltry::Run::Status::succeeded) << Files::read(run.log());
    ASSERT_TRUE(run.result);
    const JSONValue result = JSONValue::parse(*run.result);
    ASSERT_TRUE(result.find("test_accuracy")->number());
    EXPECT_GT(*result.find("test_accuracy")->number(), 0.9);

    const auto layout = TelemetryLayout::read(run.source());
    ASSERT_TRUE(layout);
    const std::string telemetry = Files::read(run.telemetryFile());
    const JSONValue point = JSONValue::parse(text::split(telemetry, '\n').front());
    EXPECT_TRUE(point.find("step")->number());
    for (const char* set : {"train", "test"})
        for (const char* key : {"loss", "accuracy"})
            EXPECT_TRUE(point.find(set)->find(key)->number()) << set << "." << key;
}

} // namespace
} // namespace veltry
