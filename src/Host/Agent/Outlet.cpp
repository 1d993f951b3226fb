#include "Host/Agent/Outlet.h"

#include "ACP/JSONRPCConnection/LineWriter.h"
#include "Host/Terminal/Terminal.h"
#include "Platform/SystemError.h"

#include <asio/post.hpp>
#include <asio/redirect_error.hpp>
#include <asio/steady_timer.hpp>
#include <asio/use_awaitable.hpp>

#include <string>
#include <system_error>
#include <utility>

namespace veltry {

namespace {

constexpr std::size_t mostWaiting = 65536; // bytes

/// The writer's failure in words that a person understands.
std::exception_ptr told(const std::exception_ptr& failure)
{
    try {
        std::rethrow_exception(failure);
    } catch (const SystemError& error) {
        if (error.code == static_cast<int>(std::errc::broken_pipe))
            return std::make_exception_ptr(Terminal::Closed());
        return std::make_exception_ptr(SystemError("could not write the output", error.code));
    } catch (...) {
        return std::current_exception();
    }
}

} // namespace

struct Outlet::State : std::enable_shared_from_this<State> {
    State(asio::any_io_executor owner, FileDescriptor file, std::function<void()> whenItFails)
        : executor(std::move(owner)), writer(std::move(file)), onFailure(std::move(whenItFails)),
          change(executor, asio::steady_timer::time_point::max())
    {
    }

    /// All that waits goes out in one piece: while one is being written the next one gathers.
    void writeNext()
    {
        std::string bytes = std::exchange(waiting, {});
        try {
            // Mostly there is room, and the thread that writes to a slow reader isn't needed.
            if (writer.writeIfPossible(bytes))
                return;
        } catch (const std::exception&) {
            return lose(std::current_exception());
        }
        isWriting = true;
        // The writer calls on its own thread, so the result is posted to ours; weakly, since nobody may be left to hear
        // it.
        writer.write(std::move(bytes), [state = weak_from_this(), owner = executor](std::exception_ptr thrown) {
            asio::post(owner, [state, thrown = std::move(thrown)] {
                if (const auto self = state.lock())
                    self->wrote(thrown);
            });
        });
    }

    void wrote(const std::exception_ptr& thrown)
    {
        isWriting = false;
        if (thrown)
            lose(thrown);
        else if (!waiting.empty())
            writeNext();
        change.cancel();
    }

    void lose(const std::exception_ptr& thrown)
    {
        if (std::exchange(isLost, true))
            return;
        failure = told(thrown);
        waiting.clear();
        change.cancel();
        // Later, since whoever writes is in the middle of something.
        asio::post(executor, onFailure);
    }

    static asio::awaitable<void> until(std::shared_ptr<State> self, std::size_t most, bool alsoWritten)
    {
        while (!self->isLost && (self->waiting.size() > most || (alsoWritten && self->isWriting))) {
            asio::error_code ignored; // a cancelled timer is how a change shows
            co_await self->change.async_wait(asio::redirect_error(asio::use_awaitable, ignored));
        }
    }

    asio::any_io_executor executor;
    LineWriter writer;
    std::function<void()> onFailure;
    asio::steady_timer change; // never expires
    std::string waiting;
    bool isWriting = false;
    bool isLost = false;
    std::exception_ptr failure;
};

Outlet::Outlet(const asio::any_io_executor& executor, FileDescriptor file, std::function<void()> onFailure)
    : state_(std::make_shared<State>(executor, std::move(file), std::move(onFailure)))
{
}

Outlet::~Outlet()
{
    drop();
}

void Outlet::write(std::string_view text)
{
    if (state_->isLost)
        return;
    state_->waiting += text;
    if (!state_->isWriting)
        state_->writeNext();
}

asio::awaitable<void> Outlet::room()
{
    return State::until(state_, mostWaiting, false);
}

asio::awaitable<void> Outlet::written()
{
    return State::until(state_, 0, true);
}

std::exception_ptr Outlet::failure() const
{
    return state_->failure;
}

void Outlet::drop()
{
    state_->isLost = true;
    state_->waiting.clear();
    state_->change.cancel();
    state_->writer.stop();
}

} // namespace veltry
