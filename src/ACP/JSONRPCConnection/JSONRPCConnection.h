#pragma once

#include "ACP/JSONRPCConnection/ConnectionError.h"
#include "ACP/JSONRPCConnection/Envelope.h"
#include "ACP/JSONRPCConnection/JSONRPCError.h"
#include "ACP/JSONRPCConnection/LineTransport.h"
#include "Base/JSONValue.h"

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <variant>

namespace veltry {

/// One JSON-RPC 2.0 peer over a stream of lines. It knows no method names and is symmetric: either side may ask at any
/// time.
///
/// Everything happens on the one serial executor that it is made with: all calls are made there, and all handlers run
/// there, one at a time, each until it suspends. Each request that comes in has a task of its own where its answer
/// isn't there at once, so answers may go out in any order; notifications are handled one after the other, and nothing
/// more is read until each is done. A line that isn't JSON-RPC is logged and passed over. While its input flows, a
/// started connection keeps itself alive.
class JSONRPCConnection : public std::enable_shared_from_this<JSONRPCConnection> {
public:
    /// `params` is null where the message had none.
    using Notifications = std::function<asio::awaitable<void>(std::string method, JSONValue params)>;
    /// The result, or a task that gives it where that has to wait for something.
    using Reply = std::variant<JSONValue, asio::awaitable<JSONValue>>;
    /// Itself or in its task it throws a JSONRPCError, or anything else, which is answered as an internal error.
    using Requests = std::function<Reply(std::string method, JSONValue params)>;
    using OnEnd = std::function<asio::awaitable<void>()>;

    /// Idle until start(). With `logsTraffic` every line goes to the system log.
    [[nodiscard]] static std::shared_ptr<JSONRPCConnection> make(
        const asio::any_io_executor& executor, std::shared_ptr<LineTransport> transport, bool logsTraffic);
    JSONRPCConnection(const JSONRPCConnection&) = delete;
    JSONRPCConnection& operator=(const JSONRPCConnection&) = delete;
    /// What is queued is still written.
    ~JSONRPCConnection();

    /// Begins to write and to read. Until then nothing goes out and a request waits. `onEnd` runs once the input has
    /// ended and then decides alone; without one the connection fails with ConnectionError::closed().
    void start(Notifications notifications, Requests requests, OnEnd onEnd = {});

    /// Asks the peer and resumes with its result (null if the answer held none). Throws the JSONRPCError that it
    /// answered, the ConnectionError that the connection failed with, JSONValue::Failure for params that can't be
    /// written, or what made its write fail. There is no time limit.
    [[nodiscard]] asio::awaitable<JSONValue> request(std::string method, JSONValue params);

    /// Queues a notification. Throws ConnectionError once the connection has failed, and JSONValue::Failure.
    void notify(std::string method, JSONValue params);

    /// Ends the use of the connection: every request that waits fails with `error`, later ones with the first failure,
    /// and answers are dropped. Reading and writing go on.
    void fail(const ConnectionError& error);

    /// False once the input has ended or the connection has failed: nobody waits for anything that isn't an answer.
    [[nodiscard]] bool isOpen() const noexcept { return !inputEnded_ && !failure_; }

    /// Resumes when everything queued so far has been written or has failed.
    [[nodiscard]] asio::awaitable<void> flush();

private:
    using Waiter = Mailbox<JSONValue>;

    struct Outgoing {
        std::string line;
        std::optional<std::int64_t> id;         ///< of a request of ours: a failed write reaches its waiter
        std::shared_ptr<Mailbox<bool>> flushed; ///< in place of a line: somebody waits for those before it
    };

    using Outbox = Mailbox<Outgoing>;

    JSONRPCConnection(
        const asio::any_io_executor& executor, std::shared_ptr<LineTransport> transport, bool logsTraffic);

    [[nodiscard]] static asio::awaitable<void> write(
        std::weak_ptr<JSONRPCConnection> connection, std::shared_ptr<LineTransport> transport,
        std::shared_ptr<Outbox> outbox, bool logsTraffic);
    /// Into the queue, or past it where that saves a turn of the executor.
    void send(Outgoing item);
    void writeFailed(const Outgoing& item, const std::exception_ptr& failure);

    // Tasks of their own get the connection as an argument, since a task begins later than it is made.
    [[nodiscard]] static asio::awaitable<void> read(std::shared_ptr<JSONRPCConnection> self);
    [[nodiscard]] asio::awaitable<void> handle(std::string line);
    void answer(Envelope request);
    [[nodiscard]] static asio::awaitable<void> answerLater(
        std::shared_ptr<JSONRPCConnection> self, std::string method, Envelope reply, asio::awaitable<JSONValue> task);
    void sendAnswer(const std::string& method, const Envelope& reply);
    void resume(const Envelope& response);
    [[nodiscard]] std::shared_ptr<Waiter> takeWaiter(std::int64_t id);

    asio::any_io_executor executor_;
    std::shared_ptr<LineTransport> transport_;
    bool logsTraffic_;
    std::int64_t nextID_ = 0;
    std::map<std::int64_t, std::shared_ptr<Waiter>> pending_;
    bool inputEnded_ = false;
    std::optional<ConnectionError> failure_; // the first; nothing more is sent after it
    std::shared_ptr<Outbox> outbox_;
    bool started_ = false;
    Notifications notifications_;
    Requests requests_;
    OnEnd onEnd_;
};

} // namespace veltry
