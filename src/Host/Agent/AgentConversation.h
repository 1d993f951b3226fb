#pragma once

#include "ACP/ACPClient/ACPClient.h"
#include "ACP/ACPClient/AgentProcess.h"
#include "Host/Agent/AgentDisplay.h"
#include "Host/Agent/ConversationPhase.h"
#include "Host/Agent/Transcript.h"
#include "Host/Agent/TypedLines.h"
#include "Host/Context.h"

#include <asio/signal_set.hpp>
#include <asio/steady_timer.hpp>

#include <functional>
#include <memory>
#include <optional>
#include <set>
#include <string>

namespace veltry {

/// One conversation with an agent at the terminal, from the agent's start to its end. All of it happens on one
/// executor, which its owner runs, and drops when run() has ended: an agent that is still there goes with it.
///
/// What the person types is a prompt between turns; in a turn it steers the agent, or waits for the turn's end where
/// the agent can't be steered; an open question takes it first. Ctrl-C cancels the turn, and ends the conversation
/// where none runs or where it is pressed again; a request to end, a hang-up, and a reader that has gone end it at
/// once. What was said is in the store when run() returns or throws, and a few seconds after it was said.
class AgentConversation final : public ACPClientDelegate, public std::enable_shared_from_this<AgentConversation> {
public:
    struct Setup {
        Harness harness;
        std::optional<Conversation> conversation; ///< to continue; else one is made once the agent has answered
        std::optional<std::string> prompt;        ///< one turn and the end; else the person is asked for prompts
        bool allowsAll = false;                   ///< every permission that is asked for is given
    };

    AgentConversation(Context& context, Setup setup, const asio::any_io_executor& executor);

    /// The signal that ended it: one that came, or Ctrl-C's where the only turn was cancelled. Throws Refusal, also of
    /// an agent that failed in the only turn, Terminal::Closed, and what the store, the output and the agent's start
    /// meet.
    [[nodiscard]] asio::awaitable<std::optional<int>> run(std::shared_ptr<AgentConversation> self);

    /// Nothing if none was made.
    [[nodiscard]] const std::optional<Conversation>& conversation() const { return setup_.conversation; }

    asio::awaitable<void> receive(SessionNotification notification) override;
    asio::awaitable<PermissionOutcome> decidePermission(RequestPermissionParams request) override;

private:
    using Event = ConversationPhase::Event;

    /// How it came to its end; the first counts.
    struct Ending {
        std::exception_ptr failure;
        std::optional<int> signal;
        bool cutsTurn;
    };

    [[nodiscard]] asio::awaitable<std::optional<int>> converse();
    [[nodiscard]] asio::awaitable<void> open();
    void offerImport();
    [[nodiscard]] asio::awaitable<void> beginSession();
    [[nodiscard]] asio::awaitable<bool> continueSession(std::string sessionID);
    [[nodiscard]] asio::awaitable<void> logIn();
    [[nodiscard]] asio::awaitable<void> setAutoMode();
    /// False if it was cancelled.
    [[nodiscard]] asio::awaitable<bool> turn(std::string prompt);
    void endTurn();
    [[nodiscard]] asio::awaitable<bool> obey(std::string line);
    [[nodiscard]] asio::awaitable<void> setOption(std::string id, std::string value);
    void showOptions();
    [[nodiscard]] asio::awaitable<std::optional<std::string>> nextPrompt();
    /// A choice from 1 to `count`, put to the person after `show`; nothing where the person gives none.
    [[nodiscard]] asio::awaitable<std::optional<std::size_t>> choice(std::size_t count, std::function<void()> show);

    /// What the event calls for is done, by whoever tells of it.
    void happened(Event event, std::optional<int> signal = std::nullopt);
    [[nodiscard]] asio::awaitable<void> end();
    [[nodiscard]] asio::awaitable<void> agentEnded();

    // Tasks beside run().
    static asio::awaitable<void> work(std::shared_ptr<AgentConversation> self);
    static asio::awaitable<void> readLines(std::shared_ptr<AgentConversation> self);
    static asio::awaitable<void> watchSignals(std::shared_ptr<AgentConversation> self);
    static asio::awaitable<void> watchRounds(std::shared_ptr<AgentConversation> self);
    static asio::awaitable<void> keepSaved(std::shared_ptr<AgentConversation> self);
    static asio::awaitable<void> steer(std::shared_ptr<AgentConversation> self, std::string line);
    static asio::awaitable<void> cancel(std::shared_ptr<AgentConversation> self);
    [[nodiscard]] asio::awaitable<void> ask(AgentQuestions round);
    [[nodiscard]] asio::awaitable<std::optional<Answer>> answerTo(Question question, std::size_t number);

    [[nodiscard]] SessionSetup sessionSetup() const;
    /// What to tell of a failure: of an agent that has ended, why.
    [[nodiscard]] asio::awaitable<std::exception_ptr> explained(std::exception_ptr failure);
    void save();

    Context& context_;
    Setup setup_;
    asio::any_io_executor executor_;
    ProjectStore& store_;
    AgentDisplay display_;
    Transcript transcript_;
    ConversationPhase phase_;
    bool isInteractive_;
    std::shared_ptr<AgentProcess> agent_;
    std::shared_ptr<ACPClient> client_;
    InitializeResult abilities_;
    std::string sessionID_;

    std::shared_ptr<LineTransport> input_; // the terminal, where there is one
    TypedLines typed_;
    Mailbox<Ending> ending_;
    asio::signal_set signals_;
    asio::steady_timer roundPause_;
    asio::steady_timer savePause_;
    asio::steady_timer farewell_;        // what the agent gets for its end
    std::set<std::string> unknownKinds_; // of updates, each logged once
};

} // namespace veltry
