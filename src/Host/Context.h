#pragma once

#include "Base/JSONValue.h"
#include "Config/VeltrySettings.h"
#include "Experiments/Lab.h"
#include "Host/CommandLine/Command.h"
#include "Host/Refusal.h"
#include "Host/Terminal/Terminal.h"
#include "Projects/DatabaseError.h"
#include "Projects/ProjectStore.h"

#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace veltry {

/// What a command works with: the common options, what they name, and where its output goes. Everything is looked up
/// when it is first asked for. Used by the main thread.
class Context {
public:
    /// The values of --db, --project and --json.
    struct Common {
        std::optional<std::filesystem::path> database;
        std::optional<std::string> project;
        bool json = false;
    };

    Context(Common common, Terminal out, Terminal notes) : common_(std::move(common)), out_(out), notes_(notes) {}

    /// Whether the command is to write JSON and nothing else.
    [[nodiscard]] bool json() const { return common_.json; }
    [[nodiscard]] const Terminal& out() const { return out_; }     ///< standard output
    [[nodiscard]] const Terminal& notes() const { return notes_; } ///< standard error
    void print(std::string_view text) const { out_.write(text); }
    /// For --json: the document on several lines.
    void printJSON(const JSONValue& document) const;
    /// A line on standard error: what was done, as opposed to what was asked for.
    void note(std::string_view line) const;

    [[nodiscard]] std::filesystem::path storePath() const;
    /// A project's folder without links and without a separator at its end, as other programs may have stored it; as
    /// it is stored where it isn't there.
    [[nodiscard]] static std::filesystem::path realFolder(const std::filesystem::path& folder);
    /// What a failure of the store means to a person, and what to do.
    [[nodiscard]] Refusal refusal(const DatabaseError& error) const;
    /// Throws Refusal if there is no store or one that is newer than this program, DatabaseError for one that is
    /// damaged or busy.
    [[nodiscard]] const std::shared_ptr<ProjectStore>& store();
    /// The same, but one that isn't there is made: for `init` and `new`.
    [[nodiscard]] const std::shared_ptr<ProjectStore>& storeMadeIfMissing();
    /// The one that --project names by its name or id, else the one with a folder that holds the current directory.
    /// Throws Refusal with the names that are near.
    [[nodiscard]] const Project& project();
    /// What to do about a project's folder that is gone.
    static constexpr std::string_view movedFolder =
        "If it was moved: veltry project move FOLDER --project NAME. (veltry init would begin a project without its "
        "experiments.)";
    /// For what the store and the run folders tell, also of a project whose repository was moved or is out of reach.
    /// Throws Refusal as project() does, and for a project without folders.
    [[nodiscard]] const Lab& lab();
    /// For what works in the repository. Throws Refusal as lab() does, and if the repository is gone.
    [[nodiscard]] const Lab& workingLab();

    /// The node of the project by its id or the start of one, its slug, its branch or its title; by "#3" the node of a
    /// run. Throws Refusal with the names that are near.
    [[nodiscard]] Experiment node(std::string_view given);
    /// The same; where nothing is given, the one in whose worktree the current directory lies. Throws UsageError if it
    /// lies in none.
    [[nodiscard]] Experiment nodeOrHere(const std::optional<std::string>& given);
    /// The run of the project by its number, with or without "#", or by its id or the start of one. Throws Refusal.
    [[nodiscard]] Run run(std::string_view given);
    /// What a command was given as "RUN|NODE": a run, or the latest one of a node as nodeOrHere() finds it. Throws
    /// Refusal also for a node without a run.
    [[nodiscard]] Run runOrLatest(const std::optional<std::string>& given);

    /// What a command was given as "NODE|RUN", in one look around all of it (Lab::treeAround()).
    struct Look {
        struct Named {
            const ExperimentTree::Node* node;
            const Run* run; ///< one of the node's; null if the node itself was named
        };
        ExperimentTree tree;
        std::vector<Named> named; ///< in the order of what was given
    };
    /// A run goes by "#3", its number or its whole id; anything else names a node. Throws Refusal, as lab() does too.
    [[nodiscard]] Look look(const std::vector<std::string>& given);

    /// The title of the run's node; empty if it can't be read.
    [[nodiscard]] std::string titleOf(const Run& run);

    /// The conversation of the project by its id or the start of one, or by its title. Throws Refusal, also for a name
    /// of several, as run() and round() do.
    [[nodiscard]] Conversation conversation(std::string_view given);
    /// The open round of questions by its place in `questions`, from 1, or by its id or the start of one; by a whole id
    /// that of any project. Throws Refusal, also for one that was closed.
    [[nodiscard]] AgentQuestions round(std::string_view given);

    [[nodiscard]] static std::filesystem::path settingsPath();
    /// The defaults where the file isn't there or can't be read.
    [[nodiscard]] static VeltrySettings settings();
    /// The `veltry-tools` beside this program.
    [[nodiscard]] static std::filesystem::path tools();

private:
    [[nodiscard]] std::optional<Run> findRun(std::string_view given);
    [[nodiscard]] bool namesRun(std::string_view given);
    [[nodiscard]] Experiment nodeOf(const Run& run);

    Common common_;
    Terminal out_;
    Terminal notes_;
    std::shared_ptr<ProjectStore> store_;
    std::optional<Project> project_;
    std::optional<Lab> lab_;
};

} // namespace veltry
