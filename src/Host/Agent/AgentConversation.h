#pragma once

#include "ACP/ACPClient/ACPClient.h"
#include "ACP/ACPClient/AgentProcess.h"
#include "Host/Agent/AgentDisplay.h"
#include "Host/Agent/Transcript.h"
#include "Host/Context.h"

#include <asio/signal_set.hpp>
#include <asio/steady_timer.hpp>

#include <deque>
#include <memory>
#include <optional>
#include <string>

namespace veltry {

/// One conversation with an agent at the terminal, from the agent's start to its end. All of it happens on one
/// executor, which its owner runs.
///
/// What the person types is a prompt between turns; in a turn it steers the agent, or waits for the turn's end where
/// the agent can't be steered; an open question takes it first. Ctrl-C cancels the turn, and ends the conversation
/// where none runs or where it is pressed again. The conversation, its session and its transcript are in the store when
/// run() returns or throws, and at the latest a few seconds after they changed.
class AgentConversation final : public ACPClientDelegate, public std::enable_shared_from_this<AgentConversation> {
public:
    struct Setup {
        Harness harness;
        std::optional<Conversation> conversation; ///< to go on with; else one is made once the agent has answered
        std::optional<std::string> prompt;        ///< one turn and the end; else the person is asked for prompts
        bool allowsAll = false;                   ///< every permission that is asked for is given
    };

    AgentConversation(Context& context, Setup setup, const asio::any_io_executor& executor);

    /// Throws Refusal, and what the store and the agent's start meet. True if the person broke it off by Ctrl-C.
    [[nodiscard]] asio::awaitable<bool> run(std::shared_ptr<AgentConversation> self);

    /// Nothing if none was made.
    [[nodiscard]] const std::optional<Conversation>& conversation() const { return setup_.conversation; }

    asio::awaitable<void> receive(SessionNotification notification) override;
    asio::awaitable<PermissionOutcome> decidePermission(RequestPermissionParams request) override;

private:
    using Lines = Mailbox<std::string>;

    [[nodiscard]] asio::awaitable<void> converse();
    [[nodiscard]] asio::awaitable<void> open();
    void offerImport();
    [[nodiscard]] asio::awaitable<void> beginSession();
    [[nodiscard]] asio::awaitable<bool> goOn(std::string sessionID);
    [[nodiscard]] asio::awaitable<void> logIn();
    [[nodiscard]] asio::awaitable<void> setAutoMode();
    [[nodiscard]] asio::awaitable<void> turn(std::string prompt);
    [[nodiscard]] asio::awaitable<bool> obey(std::string line);
    [[nodiscard]] asio::awaitable<void> setOption(std::string id, std::string value);
    void showOptions();
    [[nodiscard]] asio::awaitable<std::optional<std::string>> nextPrompt();
    /// A choice from 1 to `count`; nothing where the person gives none.
    [[nodiscard]] asio::awaitable<std::optional<std::size_t>> choice(std::size_t count);
    [[nodiscard]] asio::awaitable<std::optional<std::string>> askedLine();
    void dropQuestions();
    [[nodiscard]] asio::awaitable<void> end();
    [[nodiscard]] asio::awaitable<void> ended();

    // Tasks beside run().
    static asio::awaitable<void> readLines(std::shared_ptr<AgentConversation> self);
    static asio::awaitable<void> watchInterrupts(std::shared_ptr<AgentConversation> self);
    static asio::awaitable<void> watchRounds(std::shared_ptr<AgentConversation> self);
    [[nodiscard]] asio::awaitable<void> steer(std::string line);
    [[nodiscard]] asio::awaitable<void> ask(AgentQuestions round);

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
    std::shared_ptr<AgentProcess> process_;
    std::shared_ptr<ACPClient> client_;
    InitializeResult agent_;
    std::string sessionID_;

    bool isInteractive_;
    std::shared_ptr<LineTransport> input_; // the terminal, where there is one
    Lines prompts_;
    std::deque<std::shared_ptr<Lines>> questions_; // open ones; the first gets what is typed
    asio::signal_set interrupts_;
    asio::steady_timer roundPause_;
    std::chrono::steady_clock::time_point savedAt_;
    bool isInTurn_ = false;
    bool isCancelling_ = false;
    bool isBrokenOff_ = false;
    bool keepsHistory_ = true; // of a session that is loaded: only into an empty transcript
};

} // namespace veltry
