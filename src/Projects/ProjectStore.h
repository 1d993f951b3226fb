#pragma once

#include "Base/Error.h"
#include "Projects/Conversation.h"
#include "Projects/DatabaseError.h"
#include "Projects/Experiment.h"
#include "Projects/Paper.h"
#include "Projects/Project.h"
#include "Projects/Question.h"
#include "Projects/Run.h"

#include <cstdint>
#include <filesystem>
#include <map>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

namespace veltry {

class Database;

/// A rule of the store that was broken, apart from what SQLite itself reports.
struct ProjectStoreError : Error {
    enum class Kind {
        noFolders,         ///< a project was to be made without a folder
        notFound,          ///< a record that had to exist does not; no operation of the store's own throws it
        madeByNewerVeltry, ///< the file holds a migration that this program does not know
    };

    explicit ProjectStoreError(Kind what) : kind(what) {}

    [[nodiscard]] std::string description() const override;

    Kind kind;
};

/// An experiment that had to exist does not.
struct ExperimentStoreError : Error {
    enum class Kind { notFound };

    explicit ExperimentStoreError(Kind what, std::string text) : kind(what), id(std::move(text)) {}

    [[nodiscard]] std::string description() const override;

    Kind kind;
    std::string id; ///< the identifier's text
};

/// The one SQLite file that holds all durable state except run folders and git, and the only place where SQL is
/// written.
///
/// Shared by std::shared_ptr; the connection closes with the last holder. Every operation is synchronous, may be called
/// from any thread (they take turns), is one transaction, and throws DatabaseError with nothing kept where SQLite
/// fails; comments name other errors. A write waits up to 10 seconds for the writer of another process.
///
/// A row whose identifiers or status can't be read into their types gives no record: lists leave it out, a look-up
/// answers that there is none. An update of an id that matches no row does nothing, where no comment says otherwise.
class ProjectStore {
public:
    /// The file that is used when nobody names one: `VELTRY_DATABASE_PATH`, or else "Harrowick Veltry/veltry.sqlite" in
    /// the application-support folder. Touches nothing.
    [[nodiscard]] static std::filesystem::path defaultPath();

    /// Opens or makes the store, with its folder, and migrates it. A relative path is made absolute. Several processes
    /// may do so at the same moment. Throws SystemError, DatabaseError, and ProjectStoreError for a newer version's
    /// file, which is left as it is, as a damaged one is.
    explicit ProjectStore(const std::filesystem::path& path);
    ProjectStore(const ProjectStore&) = delete;
    ProjectStore& operator=(const ProjectStore&) = delete;
    ~ProjectStore();

    struct Opened {
        std::shared_ptr<ProjectStore> store;
        std::optional<std::filesystem::path> movedAside; ///< where an unreadable file lies now, if there was one
    };

    /// The same; but a file that SQLite can't read is moved aside with its WAL as that was before, and a new store
    /// made. Of several processes that do so at the same moment one finds the file damaged, the others the new store.
    /// All other failures end it as they end the constructor.
    [[nodiscard]] static Opened openOrReplace(const std::filesystem::path& path);

    // Looks at a file that is there, which write nothing anywhere, as opening it would. Throw DatabaseError for one
    // that can't be read.

    /// True for another program's database: it has tables, and none of ours.
    [[nodiscard]] static bool isForeign(const std::filesystem::path& path);
    /// What SQLite finds wrong with the file's pages, indices and keys, a line each; nothing where it is sound. Reads
    /// the whole file.
    [[nodiscard]] static std::vector<std::string> integrityProblems(const std::filesystem::path& path);

    /// Absolute.
    [[nodiscard]] const std::filesystem::path& path() const { return path_; }

    /// A number that is another one after any other process or connection has committed to the store. Costs a look at
    /// the file's header. Not to be compared across handles.
    [[nodiscard]] std::int64_t dataVersion() const;

    // Projects. Folders are made absolute and free of ".", ".." and doubled separators.

    /// The oldest first, each with its folders in order.
    [[nodiscard]] std::vector<Project> projects() const;
    /// A folder given twice counts once. The name is trimmed; a blank one becomes the first folder's own. Throws
    /// ProjectStoreError (noFolders).
    Project createProject(std::string_view name, const std::vector<std::filesystem::path>& folders);
    /// Trims the name; a blank one changes nothing.
    void renameProject(const UUID& id, std::string_view name);
    void dismissImport(const UUID& id);
    void setCollapsed(const UUID& id, bool collapsed);
    /// Adds the folder after the others; does nothing if the project has it. Throws DatabaseError for an unknown
    /// project.
    void addFolder(const std::filesystem::path& folder, const UUID& projectID);
    /// The project's first folder, the repository, lies there now. Folders of the project below the old place follow.
    /// Throws ProjectStoreError (noFolders) for a project without folders or an unknown one.
    void moveProject(const UUID& projectID, const std::filesystem::path& folder);
    /// Takes everything of the project with it: conversations, experiments, runs.
    void removeProject(const UUID& id);

    // Conversations and what was said in them.

    /// The oldest first.
    [[nodiscard]] std::vector<Conversation> conversations(const UUID& projectID) const;
    /// Throws DatabaseError for an unknown project.
    Conversation createConversation(const UUID& projectID, std::string_view title, std::string_view harness);
    /// All of them, in their order, or none. Throws DatabaseError for an unknown project.
    std::vector<Conversation> importConversations(
        std::span<const PastConversation> past, const UUID& projectID, std::string_view harness);
    void retitleConversation(const UUID& id, std::string_view title);
    /// Forgets the agent's session as well, even if the harness stays the same.
    void setHarness(const UUID& id, std::string_view harness);
    void setAgentSession(const UUID& id, const std::optional<std::string>& sessionID);
    void setConversationArchived(const UUID& id, bool archived);
    /// The bytes of the transcript as they were saved; none if none was.
    [[nodiscard]] std::optional<std::string> transcript(const UUID& conversationID) const;
    /// Replaces the whole transcript, a JSON array of items, and its search rows. Does nothing for an unknown
    /// conversation.
    void saveTranscript(const UUID& conversationID, std::string_view items);
    /// The best item of each conversation in which one item matches all terms, each as the beginning of a word, without
    /// regard to case and diacritics. Terms without a letter or a number are left out; without any other the result is
    /// empty. In no particular order.
    [[nodiscard]] std::vector<SaidMatch> said(std::span<const std::string> terms) const;

    // Experiments.

    /// The oldest first.
    [[nodiscard]] std::vector<Experiment> experiments(const UUID& projectID) const;
    [[nodiscard]] std::optional<Experiment> experiment(const UUID& id) const;
    /// Throws DatabaseError (a constraint) if the project has the slug already, or if project or parent don't exist.
    void insertExperiment(const Experiment& experiment);
    /// Throws ExperimentStoreError if there is no such experiment.
    void setNotes(const UUID& id, std::string_view notes);
    /// Throws ExperimentStoreError if there is no such experiment.
    void setArchived(const UUID& id, bool archived);

    // Runs. Lists go by number where nothing else is said.

    [[nodiscard]] std::vector<Run> runs(const UUID& projectID) const;
    /// Costs what the experiment's own runs cost, however many the project has.
    [[nodiscard]] std::vector<Run> runsOfExperiment(const UUID& experimentID) const;
    /// The queued and running ones of all projects, the oldest first. Reads the whole table.
    [[nodiscard]] std::vector<Run> unfinishedRuns() const;
    [[nodiscard]] std::optional<Run> run(const UUID& id) const;
    [[nodiscard]] std::optional<Run> run(std::int64_t number, const UUID& projectID) const;

    /// What one look at the runs saw, and how far it saw: `lastRowID` is the highest rowid of all projects' runs in the
    /// same snapshot, 0 if there is none.
    struct RunLook {
        std::vector<Run> runs;
        std::int64_t lastRowID = 0;
    };

    /// The project's queued and running ones. Reads the project's rows once.
    [[nodiscard]] RunLook runsInFlight(const UUID& projectID) const;
    /// The runs with these ids, whatever their status, and the project's runs made since a look whose `lastRowID` is
    /// `after`; each once. Its cost doesn't grow with the history.
    [[nodiscard]] RunLook lookAgain(const UUID& projectID, std::span<const UUID> ids, std::int64_t after) const;

    /// A queued run of that experiment with the project's next number, which no other process can get as well. Throws
    /// DatabaseError (a constraint) if the experiment is gone.
    Run insertRun(
        const UUID& id, const Experiment& experiment, const std::string& commit,
        const std::filesystem::path& directory);
    /// Only a queued run becomes running; for any other nothing happens.
    void markRunning(const UUID& id, std::int32_t pid);
    /// Ends a queued or running run now; the first to end it wins, and later calls do nothing. `status` is a final one.
    void finishRun(
        const UUID& id, Run::Status status, std::optional<std::int32_t> exitCode,
        const std::optional<std::string>& result);
    /// Sets the flag, also on a finished run.
    void requestCancel(const UUID& id);

    // Rounds of questions. Nobody is told of an answer: the asking side looks again with questions().

    /// The open round of that conversation with exactly these questions, or else a new one. Two processes that ask the
    /// same at the same moment get one round. Throws JSONValue::Failure, and DatabaseError for an unknown conversation.
    AgentQuestions ask(const std::vector<Question>& questions, const UUID& conversationID);
    /// Costs one look-up by key.
    [[nodiscard]] std::optional<AgentQuestions> questions(const UUID& id) const;
    /// The oldest first.
    [[nodiscard]] std::vector<AgentQuestions> openQuestions(const UUID& conversationID) const;
    /// The open rounds of the project, or of all projects if none is given; the oldest first.
    [[nodiscard]] std::vector<AgentQuestions> openRounds(const std::optional<UUID>& projectID = std::nullopt) const;
    /// Closes an open round, with one answer for each question. The first to close a round wins: for a closed one this
    /// and the next do nothing. Throws JSONValue::Failure.
    void answer(const UUID& id, const std::vector<Answer>& answers);
    /// Closes an open round without answers.
    void dismissQuestions(const UUID& id);
    /// Closes all open rounds of the conversation, for an asker who waits no more.
    void withdrawQuestions(const UUID& conversationID);

    // The library, which spans all projects, and the citations of experiments.

    /// The last saved first.
    [[nodiscard]] std::vector<Paper> libraryPapers() const;
    /// The papers that the project holds, the last saved there first.
    [[nodiscard]] std::vector<Paper> libraryPapers(const UUID& projectID) const;
    /// The paper with that id where the list of the same argument holds it, found by its key.
    [[nodiscard]] std::optional<Paper> libraryPaper(std::string_view paperID) const;
    [[nodiscard]] std::optional<Paper> libraryPaper(std::string_view paperID, const UUID& projectID) const;
    /// The ids of each project's papers, the last saved first; projects without papers have no entry.
    [[nodiscard]] std::unordered_map<UUID, std::vector<std::string>> projectPapers() const;
    /// Into the library, and into the project if one is given. A paper that is there already stays as it was first
    /// saved. Throws JSONValue::Failure, and DatabaseError for an unknown project.
    void savePaper(const Paper& paper, const std::optional<UUID>& projectID = std::nullopt);
    /// From the project alone; or, if none is given, from the library and so from all projects. Citations stay.
    void removePaper(std::string_view paperID, const std::optional<UUID>& projectID = std::nullopt);
    /// Puts the paper into the library and the experiment's project as well. Citing again replaces the reason alone.
    /// Throws JSONValue::Failure, and DatabaseError for an unknown experiment.
    void cite(const Paper& paper, const UUID& experimentID, std::string_view reason);
    void removeCitation(std::string_view paperID, const UUID& experimentID);
    /// The oldest first.
    [[nodiscard]] std::vector<Citation> citations(const UUID& projectID) const;
    /// By paper id, the oldest citation first; archived experiments are left out.
    [[nodiscard]] std::map<std::string, std::vector<CitingExperiment>> citingExperiments() const;

private:
    std::filesystem::path path_;
    std::unique_ptr<Database> database_;
};

} // namespace veltry
