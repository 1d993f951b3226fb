#include "Base/Text.h"
#include "Host/CommandLine/CommandTable.h"
#include "Platform/Files.h"
#include "Projects/ProjectStore.h"
#include "Support/HostLab.h"

#include <fmt/format.h>
#include <gmock/gmock.h>

#include <set>

namespace veltry {
namespace {

using testing::HasSubstr;
using Words = std::set<std::string>;

std::filesystem::path page(std::string_view name)
{
    return test::hostProgram().parent_path().parent_path() / "share" / name;
}

const std::filesystem::path bashPage = page("bash-completion/completions/veltry");
const std::filesystem::path zshPage = page("zsh/vendor-completions/_veltry");
const std::filesystem::path fishPage = page("fish/vendor_completions.d/veltry.fish");

/// A page and the program that reads it.
struct Reader {
    std::string name;
    std::filesystem::path program;
    std::vector<std::string> arguments;

    friend void PrintTo(const Reader& reader, std::ostream* out) { *out << reader.program; }
};

class PageReaderTest : public testing::TestWithParam<Reader> {};

TEST_P(PageReaderTest, AcceptsThePage)
{
    const auto& [name, program, arguments] = GetParam();
    if (!Files::isExecutable(program))
        GTEST_SKIP() << "there is no " << program << "; script/setup installs it";
    const ChildProcess::Output said = test::runProgram(program, arguments);
    EXPECT_EQ(said.exitNumber, 0);
    EXPECT_EQ(said.output + said.error, "");
}

INSTANTIATE_TEST_SUITE_P(
    Pages, PageReaderTest,
    testing::Values(
        Reader{"groff", "/usr/bin/groff", {"-man", "-Tutf8", "-ww", "-z", page("man/man1/veltry.1").string()}},
        Reader{"bash", "/bin/bash", {"-n", bashPage.string()}}, Reader{"zsh", "/bin/zsh", {"-n", zshPage.string()}},
        Reader{"fish", "/usr/bin/fish", {"-n", fishPage.string()}}),
    [](const testing::TestParamInfo<Reader>& reader) { return reader.param.name; });

TEST(Pages, TheManualNamesEveryCommandWithItsOptions)
{
    const std::string manual = Files::read(page("man/man1/veltry.1"));
    const std::string help = test::runProgram(test::hostProgram(), {"--help"}).output;
    std::string_view rest = manual;
    for (const Command& command : CommandTable::commands()) {
        const std::string heading = fmt::format("\n.SS {}\n", text::replacingAll(command.name, "-", "\\-"));
        EXPECT_EQ(help.contains(fmt::format("\n  {} ", command.firstWord())), !command.hidden) << command.name;
        const std::size_t begin = rest.find(heading);
        EXPECT_EQ(begin != std::string_view::npos, !command.hidden) << command.name;
        if (command.hidden || begin == std::string_view::npos)
            continue;
        rest.remove_prefix(begin + heading.size());
        const std::string_view its = rest.substr(0, rest.find("\n.S"));
        for (const Option& option : command.options)
            EXPECT_THAT(its, HasSubstr(text::replacingAll(option.name(), "-", "\\-"))) << command.name;
    }
    for (const char* text : {".SH SETTINGS", "veltry init \\(ti/code/digits \\-\\-name Digits"})
        EXPECT_THAT(manual, HasSubstr(text));
}

/// A store with what can be named, and a shell that stands in the project's folder.
class CompletionTest : public testing::Test {
protected:
    CompletionTest()
    {
        second_ = lab_.store->createProject("Digits, it's two", {lab_ / "two"});
        const Experiment node = lab_.baseline("true");
        lab_.store->setArchived(lab_.child(node, "Other idea").id, true);
        lab_.insertFinished(node);
        lab_.insertFinished(node, Run::Status::failed);
        const Conversation conversation = lab_.store->createConversation(lab_.lab.project.id, "Talk", "Codex");
        round_ =
            lab_.store->ask({Question{.question = "Which\n\x1b[31mone?", .detail = {}, .options = {}}}, conversation.id)
                .id;
    }

    ChildProcess::Output shell(const std::filesystem::path& program, std::vector<std::string> arguments) const
    {
        return test::runProgram(program, arguments, environment(), lab_.repository.path());
    }

    std::string complete(std::vector<std::string> arguments) const
    {
        arguments.insert(arguments.begin(), "complete");
        const ChildProcess::Output said = shell(test::hostProgram(), arguments);
        EXPECT_EQ(said.exitNumber, 0);
        EXPECT_EQ(said.error, "");
        return said.output;
    }

    ChildProcess::Environment environment() const
    {
        ChildProcess::Environment environment = lab_.environment();
        environment["PATH"] = test::hostProgram().parent_path().string() + ":/usr/bin:/bin";
        environment["HOME"] = (lab_ / "").string(); // no profile of whoever runs the tests
        return environment;
    }

    test::HostLab lab_;
    Project second_;
    UUID round_ = UUID::random();
};

TEST_F(CompletionTest, ValuesComeFromTheStoreAndFailuresAreSilent)
{
    const struct {
        std::vector<std::string> arguments;
        std::string lines;
    } cases[] = {
        {{"project"},
         "P\t" + lab_.repository.path().string() + "\nDigits, it's two\t" + (lab_ / "two").string() + "\n"},
        {{"--", "project", "Dig"}, "Digits, it's two\t" + (lab_ / "two").string() + "\n"},
        {{"node", ""}, "baseline\tBaseline\nother-idea\tOther idea\n"},
        {{"--", "node", "--"}, ""},
        {{"run"}, "2\tBaseline, failed\n1\tBaseline, succeeded\n"},
        {{"round"}, round_.text() + "\tWhich \xEF\xBF\xBD[31mone?\n"},
        {{"setting", "exp"}, "experiments.max_runs\t\nexperiments.tree\t\n"},
        {{"node", "--project", second_.id.text()}, ""},
        {{"node", "--project", "no such"}, ""},
        {{"node", "--db", "/no/such/store"}, ""},
        {{"node", "--db", "/proc/version"}, ""},
        {{"planet"}, ""},
        {{}, ""},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(testing::PrintToString(c.arguments));
        EXPECT_EQ(complete(c.arguments), c.lines);
    }
    EXPECT_FALSE(Files::exists("/no/such"));
}

const std::string inBash = R"bash(
source "$1"
shift
COMP_WORDS=("$@") COMP_CWORD=$(($# - 1))
_veltry veltry
printf '%s\n' "${COMPREPLY[@]}"
)bash";

TEST_F(CompletionTest, BashCompletes)
{
    const struct {
        std::vector<std::string> line;
        std::vector<std::string> offered;
    } cases[] = {
        {{"veltry", "projec"}, {"projects", "project"}},
        {{"veltry", "project", "ren"}, {"rename"}},
        {{"veltry", "project", "rename", "--"}, {"--project", "--db", "--help"}},
        {{"veltry", "projects", "--j"}, {"--json"}},
        {{"veltry", "project", "rename", "--project", "\"Dig"}, {"Digits\\,\\ it\\'s\\ two"}},
        {{"veltry", "project", "rename", "--project", "="}, {"P", "Digits\\,\\ it\\'s\\ two"}},
        {{"veltry", "project", "rename", "--db", "/no/such", "--project", ""}, {}},
        {{"veltry", "init", "--db", "=", "x", "--na"}, {"--name"}},
        {{"veltry", "init", "/us"}, {"/usr"}},
        {{"veltry", "show", "ba"}, {"baseline"}},
        {{"veltry", "nonsense", ""}, {}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(testing::PrintToString(c.line));
        std::vector<std::string> arguments = {"--norc", "-c", inBash, "bash", bashPage.string()};
        arguments.insert(arguments.end(), c.line.begin(), c.line.end());
        const ChildProcess::Output said = shell("/bin/bash", arguments);
        EXPECT_EQ(said.error, "");
        std::string expected = text::joined(c.offered, "\n") + "\n";
        EXPECT_EQ(said.output, expected);
    }
}

/// An interactive shell on a pseudo-terminal, which writes every offer between marks as well; for each line its own.
const std::string inZsh = R"zsh(
zmodload zsh/zpty || exit 1
zpty shell zsh -f -i
zpty -w shell "fpath=(${(q)1} \$fpath); autoload -Uz compinit && compinit -u -D; bindkey '^I' complete-word"
zpty -w shell 'compadd() { local -a found; builtin compadd -O found "$@"; print -rl -- "<"$^found">"; builtin compadd "$@" }'
zpty -w shell 'setopt no_list_beep; PROMPT="REA""DY> "; print -r -- DO""NE'
zpty -r -m shell said '*DONE*'
for line in "${@:2}"; do
    zpty -r -m shell prompt '*READY> *' # a key that comes before is no key to its line editor
    zpty -w -n shell "$line"$'\t'
    zpty -w -n shell $'\C-U\nprint -r -- DO""NE\n'
    zpty -r -m shell said '*DONE*'
    print -r -- "${said}=END="
done
)zsh";

Words marked(std::string_view output)
{
    Words words;
    for (const std::string_view line : text::split(output, '\n')) {
        const std::size_t begin = line.rfind('<');
        const std::size_t end = line.rfind('>');
        if (begin != std::string_view::npos && end != std::string_view::npos && begin + 1 < end)
            words.emplace(line.substr(begin + 1, end - begin - 1));
    }
    return words;
}

TEST_F(CompletionTest, ZshAndFishComplete)
{
    const struct {
        std::string line;
        Words offered;
    } cases[] = {
        {"veltry projec", {"project", "projects"}},
        {"veltry project ", {"rename", "add-folder", "move", "remove"}},
        {"veltry project rename --", {"--project", "--db", "--help"}},
        {"veltry project rename --project ", {"P", "Digits, it's two"}},
        {"veltry show ", {"baseline", "other-idea"}},
        {"veltry project rename --db /no/such --project ", {}},
    };
    std::vector<std::string> arguments = {"-f", "-c", inZsh, "zsh", zshPage.parent_path().string()};
    for (const auto& c : cases)
        arguments.push_back(c.line);
    const bool hasZsh = Files::isExecutable("/bin/zsh");
    const bool hasFish = Files::isExecutable("/usr/bin/fish");
    const std::string output = hasZsh ? shell("/bin/zsh", arguments).output : "";
    std::string_view rest = output;
    for (const auto& c : cases) {
        SCOPED_TRACE(c.line);
        if (hasZsh) {
            const std::size_t end = rest.find("=END=");
            EXPECT_EQ(marked(rest.substr(0, end)), c.offered) << rest.substr(0, end);
            rest.remove_prefix(std::min(rest.size(), end + 5));
        }
        if (!hasFish)
            continue;
        const std::string said = shell(
                                     "/usr/bin/fish", {"--no-config", "-c", "source $argv[1]; complete -C $argv[2]",
                                                       fishPage.string(), c.line})
                                     .output;
        Words words;
        for (const std::string_view line : text::split(text::trimmed(said), '\n'))
            if (!line.empty())
                words.emplace(line.substr(0, line.find('\t')));
        EXPECT_EQ(words, c.offered) << said;
    }
    if (!hasZsh || !hasFish)
        GTEST_SKIP() << "there is no " << (hasZsh ? "fish" : "zsh") << "; script/setup installs it";
}

} // namespace
} // namespace veltry
