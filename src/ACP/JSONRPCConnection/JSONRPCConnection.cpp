#include "ACP/JSONRPCConnection/JSONRPCConnection.h"

#include "Base/Text.h"
#include "Platform/SystemLog.h"

#include <asio/co_spawn.hpp>
#include <asio/detached.hpp>
#include <fmt/format.h>

#include <utility>

namespace veltry {

namespace {

void logFailure(const std::string& message)
{
    SystemLog::write(SystemLog::Level::error, "jsonrpc", message);
}

void logTraffic(std::string_view arrow, std::string_view line)
{
    SystemLog::write(SystemLog::Level::info, "acp", fmt::format("{} {}", arrow, text::repaired(line)));
}

std::string describe(const std::exception_ptr& failure)
{
    try {
        std::rethrow_exception(failure);
    } catch (const std::exception& error) {
        return veltry::describe(error);
    }
}

/// How a peer is told what a handler threw.
JSONRPCError errorOf(const std::exception& failure)
{
    if (const auto* meant = dynamic_cast<const JSONRPCError*>(&failure))
        return *meant;
    return JSONRPCError::internal(veltry::describe(failure));
}

} // namespace

std::shared_ptr<JSONRPCConnection> JSONRPCConnection::make(
    const asio::any_io_executor& executor, std::shared_ptr<LineTransport> transport, bool logsTraffic)
{
    return std::shared_ptr<JSONRPCConnection>(new JSONRPCConnection(executor, std::move(transport), logsTraffic));
}

JSONRPCConnection::JSONRPCConnection(
    const asio::any_io_executor& executor, std::shared_ptr<LineTransport> transport, bool logsTraffic)
    : executor_(executor), transport_(std::move(transport)), logsTraffic_(logsTraffic),
      outbox_(std::make_shared<Outbox>(executor))
{
}

JSONRPCConnection::~JSONRPCConnection()
{
    outbox_->finish();
}

void JSONRPCConnection::start(Notifications notifications, Requests requests, OnEnd onEnd)
{
    started_ = true;
    notifications_ = std::move(notifications);
    requests_ = std::move(requests);
    onEnd_ = std::move(onEnd);
    asio::co_spawn(executor_, write(weak_from_this(), transport_, outbox_, logsTraffic_), asio::detached);
    asio::co_spawn(executor_, read(shared_from_this()), asio::detached);
}

asio::awaitable<JSONValue> JSONRPCConnection::request(std::string method, JSONValue params)
{
    if (failure_)
        throw *failure_;
    const std::int64_t id = nextID_++; // used up even if the params can't be written
    Envelope message;
    message.id = id;
    message.method = std::move(method);
    message.params = std::move(params);
    Outgoing item{.line = message.line(), .id = id, .flushed = nullptr};

    // The waiter stands there before the line goes out, since the answer may be read as soon as this task waits.
    const auto waiter = std::make_shared<Waiter>(executor_);
    pending_.emplace(id, waiter);
    send(std::move(item));
    std::optional<JSONValue> result = co_await waiter->next();
    co_return std::move(*result); // a waiter ends with a result or throws
}

void JSONRPCConnection::notify(std::string method, JSONValue params)
{
    if (failure_)
        throw *failure_;
    Envelope message;
    message.method = std::move(method);
    message.params = std::move(params);
    send({.line = message.line(), .id = std::nullopt, .flushed = nullptr});
}

void JSONRPCConnection::fail(const ConnectionError& error)
{
    if (!failure_)
        failure_ = error;
    // Emptied first: who hears of the failure may ask again, and must not be failed by this loop.
    for (const auto& [id, waiter] : std::exchange(pending_, {}))
        waiter->fail(std::make_exception_ptr(error));
}

asio::awaitable<void> JSONRPCConnection::flush()
{
    // A mark in the queue itself: the writer meets it after the last line that was queued before.
    const auto flushed = std::make_shared<Mailbox<bool>>(executor_);
    outbox_->push({.line = {}, .id = std::nullopt, .flushed = flushed});
    co_await flushed->next();
}

// Holds the connection weakly, so that one which nobody uses any more goes, and its queue is written all the same.
asio::awaitable<void> JSONRPCConnection::write(
    std::weak_ptr<JSONRPCConnection> connection, std::shared_ptr<LineTransport> transport,
    std::shared_ptr<Outbox> outbox, bool logsTraffic)
{
    while (std::optional<Outgoing> item = co_await outbox->next()) {
        if (item->flushed) {
            item->flushed->push(true);
            continue;
        }
        if (logsTraffic)
            logTraffic("→", item->line);
        std::exception_ptr failure;
        try {
            co_await transport->send(std::move(item->line));
        } catch (const std::exception&) {
            failure = std::current_exception();
        }
        if (failure)
            if (const auto self = connection.lock())
                self->writeFailed(*item, failure);
    }
}

void JSONRPCConnection::send(Outgoing item)
{
    // Past the queue only where it is empty: a line must not overtake one that was queued. The writer may still be at
    // the last line that it took, but the transport knows of that one and then refuses.
    if (!started_ || logsTraffic_ || !outbox_->isEmpty()) {
        outbox_->push(std::move(item));
        return;
    }
    try {
        if (!transport_->sendIfPossible(item.line))
            outbox_->push(std::move(item));
    } catch (const std::exception&) {
        writeFailed(item, std::current_exception());
    }
}

void JSONRPCConnection::writeFailed(const Outgoing& item, const std::exception_ptr& failure)
{
    if (!item.id)
        logFailure("could not send a notification: " + describe(failure));
    else if (const auto waiter = takeWaiter(*item.id))
        waiter->fail(failure);
}

asio::awaitable<void> JSONRPCConnection::read(std::shared_ptr<JSONRPCConnection> self)
{
    try {
        while (std::optional<std::string> line = co_await self->transport_->lines().next()) {
            if (self->logsTraffic_)
                logTraffic("←", *line);
            co_await self->handle(std::move(*line));
        }
    } catch (const std::exception& error) {
        logFailure("transport failed: " + veltry::describe(error));
    }
    // Before onEnd, whose waiting gives handlers a turn to send notices.
    self->inputEnded_ = true;
    if (self->onEnd_)
        co_await self->onEnd_();
    else
        self->fail(ConnectionError::closed());
}

asio::awaitable<void> JSONRPCConnection::handle(std::string line)
{
    std::optional<Envelope> message = Envelope::parse(line);
    if (!message) {
        logFailure(fmt::format("skipped a line that is not JSON-RPC ({} bytes)", line.size()));
        co_return;
    }
    if (!message->method) {
        resume(*message);
        co_return;
    }
    if (message->id) {
        answer(std::move(*message));
        co_return;
    }
    // Waited for inside the loop that reads, so that notifications keep their order.
    try {
        JSONValue params = std::move(message->params).value_or(nullptr);
        co_await notifications_(std::move(*message->method), std::move(params));
    } catch (const std::exception& error) { // nobody waits for an answer, and reading must go on
        logFailure("a notification was not handled: " + veltry::describe(error));
    }
}

// A task costs as much as reading the request did, so one is made only for an answer that waits.
void JSONRPCConnection::answer(Envelope request)
{
    Envelope reply;
    reply.id = std::move(request.id);
    try {
        Reply given = requests_(*request.method, std::move(request.params).value_or(nullptr));
        if (auto* task = std::get_if<asio::awaitable<JSONValue>>(&given)) {
            asio::co_spawn(
                executor_,
                answerLater(shared_from_this(), std::move(*request.method), std::move(reply), std::move(*task)),
                asio::detached);
            return;
        }
        reply.result = std::get<JSONValue>(std::move(given));
    } catch (const std::exception& error) {
        reply.error = errorOf(error);
    }
    sendAnswer(*request.method, reply);
}

asio::awaitable<void> JSONRPCConnection::answerLater(
    std::shared_ptr<JSONRPCConnection> self, std::string method, Envelope reply, asio::awaitable<JSONValue> task)
{
    try {
        reply.result = co_await std::move(task);
    } catch (const std::exception& error) {
        reply.error = errorOf(error);
    }
    self->sendAnswer(method, reply);
}

void JSONRPCConnection::sendAnswer(const std::string& method, const Envelope& reply)
{
    if (failure_) // nobody uses the connection any more
        return;
    try {
        send({.line = reply.line(), .id = std::nullopt, .flushed = nullptr});
    } catch (const JSONValue::Failure& error) {
        logFailure(fmt::format("could not answer {}: {}", method, error.description()));
    }
}

void JSONRPCConnection::resume(const Envelope& response)
{
    if (!response.id || !response.id->number()) {
        logFailure("skipped a message with neither a method nor a known id");
        return;
    }
    // Nothing for 1e300, which names no request.
    const std::optional<std::int64_t> id = response.id->integer();
    const auto waiter = id ? takeWaiter(*id) : nullptr;
    // Failed meanwhile, or never asked: nobody waits for it.
    if (!waiter)
        return;
    if (response.error)
        waiter->fail(std::make_exception_ptr(*response.error));
    else
        waiter->push(response.result.value_or(nullptr));
}

std::shared_ptr<JSONRPCConnection::Waiter> JSONRPCConnection::takeWaiter(std::int64_t id)
{
    auto node = pending_.extract(id);
    return node ? std::move(node.mapped()) : nullptr;
}

} // namespace veltry
