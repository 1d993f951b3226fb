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
    std::string afterScript(const std::filesystem::path& page, std::string_view script, std::size_t width = 1200) const
    {
        const std::filesystem::path tried = page.parent_path() / ("tried" + page.extension().string());
        std::string text = Files::read(page);
        for (const std::string_view end : {"</body>", "</svg>\n"})
            text = text::replacingAll(text, end, fmt::format("<script>{}</script>{}", script, end));
        Files::writeAtomically(tried, text);
        return ChildProcess::run(
                   {.executable = *browser(),
                    .arguments =
                        {"--headless", "--no-sandbox", "--disable-gpu", "--disable-dev-shm-usage",
                         "--user-data-dir=" + (folder_ / "browser").string(),
                         fmt::format("--window-size={},900", width), "--dump-dom", "file://" + tried.string()},
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

TEST_F(ChartsCommand, DrawsRunsTogetherAndTakesANodeForItsLatestRun)
{
    const veltry::Run other = lab_.insertFinished(lab_.baseline("true", "Other"));
    Files::createFolders(other.source());
    Files::writeAtomically(other.telemetryFile(), "{\"step\":1,\"loss\":8}\n{\"step\":2,\"loss\":4}\n{\"lr\":3}\n");
    const struct {
        std::vector<std::string> arguments;
        std::string_view text;
    } cases[] = {
        {{"1", "other", "--key", "loss"}, "#2 Other 4"},
        {{"2", "1", "2", "--key", "loss"}, "#1 <i>Nodes</i> 0"},
        {{"other"}, "loss 4"},
        {{"2", "--key", "loss", "--smooth", "0.5"}, "loss 5.33333"}, // (8 / 4 + 4 / 2) / (1 - 1 / 4)
        {{"1", "--key", "lost"}, "Did you mean loss?"},
        {{"1", "--smooth", "1"}, "below 1"},
        {{"1", "2", "--follow"}, "one run"},
        {{"2", "--key", "lr"}, "lr was never reported together with step"},
        {{"nothing"}, "There is no node"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.text);
        const ChildProcess::Output shown = charts(c.arguments);
        EXPECT_THAT(shown.output + shown.error, HasSubstr(c.text));
    }
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

TEST_F(ChartsCommand, LeavesNoTextOutsideItsPanelOrOverAnother)
{
    if (!browser())
        GTEST_SKIP() << "no Chromium here: script/setup --with-chromium installs it";
    const std::string wide(60, 'W');
    Files::writeAtomically(
        run_.source() / "telemetry.toml",
        fmt::format(
            "x = \"time\"\n[[panel]]\ntitle = \"{0}{0}\"\ny = [\"{0}\", \"loss\", \"{0}1\"]\n"
            "[[panel]]\ny = \"loss\"\nx = \"{0}\"\n[[panel]]\ny = \"time\"\nwide = true\n"
            "[[panel]]\ntitle = \"Many words in a title, as many as there may be, and a few more of them\"\n"
            "y = \"time\"\nscale = \"log\"\n[[stat]]\ntitle = \"{0}\"\ny = \"loss\"\n",
            wide));
    std::string lines;
    for (int step = 0; step < 40; ++step)
        lines += fmt::format(
            "{{\"time\":17000000{0:02}000000000,\"loss\":{0},\"{1}\":{0}0000,\"{1}1\":-{0}}}\n", step, wide);
    Files::writeAtomically(run_.telemetryFile(), lines);
    constexpr std::string_view look = R"js(
        const parts = [...document.querySelectorAll('text, li, figcaption, dt, dd, h1')].map((part) => {
            const box = part.getBoundingClientRect();
            const panel = (part.closest('svg') || part.closest('figure, dl, header')).getBoundingClientRect();
            return {name: part.textContent, box, out: panel.left > box.left + 1 || box.right > panel.right + 1};
        });
        const over = (a, b) => [b.right > a.left + 1, a.right > b.left + 1, b.bottom > a.top + 4,
            a.bottom > b.top + 4].every(Boolean);
        const wrong = parts.filter((part) => part.out).map((part) => part.name);
        parts.forEach((a, at) => parts.slice(at + 1).forEach((b) => {
            if (over(a.box, b.box)) wrong.push(a.name + ' over ' + b.name);
        }));
        document.documentElement.setAttribute('data-look', parts.length + ' parts, wrong: ' + wrong.join('; '));
    )js";
    for (const auto& [option, name, width] :
         {std::tuple("--html", "page.html", 1200), {"--html", "page.html", 500}, {"--svg", "page.svg", 1200}}) {
        SCOPED_TRACE(fmt::format("{} {}", option, width));
        ASSERT_EQ(charts({"1", option, (folder_ / name).string()}).exitNumber, 0);
        const std::string document = afterScript(folder_ / name, look, width);
        EXPECT_TRUE(document.contains(" parts, wrong: \"")) << document.substr(0, 2000);
    }
}

} // namespace
} // namespace veltry
