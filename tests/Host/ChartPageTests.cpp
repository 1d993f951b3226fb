#include "Base/Text.h"
#include "Platform/Files.h"
#include "Platform/ProcessFacts.h"
#include "Support/Eventually.h"
#include "Support/PseudoTerminal.h"
#include "Support/TestLab.h"

#include <fmt/format.h>
#include <gmock/gmock.h>

namespace veltry {
namespace {

using testing::AllOf;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

std::optional<std::filesystem::path> browser()
{
    for (const char* program : {"/usr/bin/chromium", "/usr/bin/chromium-browser", "/usr/bin/google-chrome"})
        if (Files::isExecutable(program))
            return program;
    return std::nullopt;
}

/// `veltry charts` on a run that ended and left telemetry.
class ChartsCommand : public testing::Test {
protected:
    ChartsCommand() : run_(lab_.insertFinished(lab_.baseline("true", "<i>Nodes</i>")))
    {
        Files::createFolders(run_.source());
        Files::writeAtomically(
            run_.source() / "telemetry.toml",
            "x = \"step\"\n[[panel]]\ntitle = \"</script><b>\"\ny = [\"loss\", \"acc\"]\n"
            "[[stat]]\ny = \"acc\"\n");
        std::string lines = "no json\n";
        for (int step = 1; step <= 10; ++step)
            lines += fmt::format("{{\"step\":{},\"loss\":{},\"acc\":{}}}\n", step * 100, 10 - step, step);
        Files::writeAtomically(run_.telemetryFile(), lines);
    }

    std::vector<std::string> words(std::vector<std::string> arguments) const
    {
        arguments.insert(arguments.begin(), "charts");
        arguments.insert(arguments.end(), {"--db", lab_.database().string(), "--project", "P"});
        return arguments;
    }

    ChildProcess::Output charts(std::vector<std::string> arguments) const
    {
        return test::runProgram(test::hostProgram(), words(std::move(arguments)));
    }

    /// The page's document after its scripts, and after one that is put behind them.
    std::string afterScript(const std::filesystem::path& page, std::string_view script) const
    {
        const std::filesystem::path tried = page.parent_path() / "tried.html";
        const std::string text = Files::read(page);
        Files::writeAtomically(
            tried, text::replacingAll(text, "</body>", fmt::format("<script>{}</script></body>", script)));
        return ChildProcess::run({.executable = *browser(),
                                  .arguments =
                                      {"--headless", "--no-sandbox", "--disable-gpu", "--disable-dev-shm-usage",
                                       "--user-data-dir=" + (folder_ / "browser").string(), "--window-size=1200,900",
                                       "--dump-dom", "file://" + tried.string()},
                                  .environment = ProcessFacts::environment(),
                                  .directory = {},
                                  .input = {},
                                  .output = {},
                                  .error = {}})
            .output;
    }

    test::TemporaryFolder folder_;
    test::TestLab lab_;
    veltry::Run run_;
};

TEST_F(ChartsCommand, WritesADrawingAndAPageInOneStep)
{
    const std::filesystem::path page = folder_ / "a b.html";
    EXPECT_EQ(charts({"1", "--html", page.string()}).error, "Wrote " + page.string() + ".\n");
    EXPECT_THAT(Files::read(page), AllOf(StartsWith("<!DOCTYPE html>"), HasSubstr("1 line that was not JSON")));
    const std::filesystem::path drawing = folder_ / "a.svg";
    EXPECT_EQ(charts({"1", "--svg", drawing.string(), "--follow"}).exitNumber, 0); // it has ended
    EXPECT_THAT(Files::read(drawing), AllOf(StartsWith("<svg xmlns="), HasSubstr("</svg>\n")));
    EXPECT_THAT(charts({"1"}).output, AllOf(HasSubstr("acc 10"), HasSubstr("</script><b>")));
    EXPECT_TRUE(*JSONValue::parse(charts({"1", "--json"}).output).find("configured")->boolean());

    EXPECT_EQ(charts({"1", "--svg", "/no/where/a.svg"}).exitNumber, 1);
    EXPECT_EQ(charts({"1", "--svg", "/tmp"}).exitNumber, 2);
    EXPECT_EQ(charts({"1", "--svg", "a", "--html", "b"}).exitNumber, 2);
}

TEST_F(ChartsCommand, TakesTheLayoutOfTheCommitWhereTheSnapshotIsGone)
{
    lab_.repository.write("telemetry.toml", "[[stat]]\ny = \"loss\"\ntitle = \"from git\"\n");
    const veltry::Run run = [&] {
        const UUID id = UUID::random();
        const Experiment node = lab_.store->experiments(lab_.lab.project.id).at(0);
        lab_.store->insertRun(id, node, lab_.repository.commit(), lab_.runs() / id.text());
        return lab_.store->run(id).value();
    }();
    EXPECT_THAT(charts({std::to_string(run.number)}).output, HasSubstr("from git"));
    Files::createFolders(run.source());
    Files::writeAtomically(run.source() / "telemetry.toml", "zoom = 1\n");
    EXPECT_THAT(charts({std::to_string(run.number)}).error, StartsWith("telemetry.toml the file has \"zoom\""));
}

TEST_F(ChartsCommand, FollowsARunOnATerminal)
{
    const Experiment node = lab_.baseline(
        "echo '{\"a\":1}' >>$HARROWICK_TELEMETRY_PATH; until [ -e go ]; do sleep 0.05; done; "
        "echo '{\"a\":7}' >>$HARROWICK_TELEMETRY_PATH",
        "Slow");
    const veltry::Run run = lab_.lab.launch(node.id, 0);
    test::PseudoTerminal terminal(test::hostProgram(), words({"2", "--follow"}));
    ASSERT_TRUE(terminal.shows("a\033[2m 1")) << terminal.output();
    Files::writeAtomically(run.source() / "go", "");
    EXPECT_TRUE(terminal.shows("\033[?1049l"));
    EXPECT_TRUE(terminal.shows("a\033[2m 7")) << terminal.output();
    EXPECT_TRUE(terminal.shows("Run #2 "));
    EXPECT_EQ(terminal.wait(), 0);
}

TEST_F(ChartsCommand, MakesAPageThatABrowserShows)
{
    if (!browser())
        GTEST_SKIP() << "no Chromium here: script/setup --with-chromium installs it";
    const std::filesystem::path page = folder_ / "page.html";
    ASSERT_EQ(charts({"1", "--html", page.string()}).exitNumber, 0);
    const std::string document = afterScript(page, R"js(
        const svg = document.querySelector('figure .plot svg');
        const box = svg.getBoundingClientRect();
        const at = (part) => svg.dispatchEvent(new PointerEvent('pointermove',
            {clientX: box.left + box.width * part, clientY: box.top + 40}));
        at(0.99);
        const shown = document.getElementById('tip').innerText.replaceAll('\n', '; ');
        const marks = document.querySelectorAll('.h circle').length;
        svg.dispatchEvent(new PointerEvent('pointerleave'));
        const lines = [...document.querySelectorAll('path.l')].map((path) => path.getBBox().width > 400);
        const fits = document.documentElement.scrollWidth <= document.documentElement.clientWidth;
        const bold = document.querySelectorAll('figcaption b, i').length;
        document.title = JSON.stringify({shown, marks, hidden: document.getElementById('tip').hidden, lines, fits, bold});
    )js");
    EXPECT_THAT(
        document, HasSubstr("<title>{\"shown\":\"step 1,000; loss 0; acc 10\",\"marks\":2,\"hidden\":true,"
                            "\"lines\":[true,true],\"fits\":true,\"bold\":0}</title>"));
}

} // namespace
} // namespace veltry
