#pragma once

#include "Platform/FileDescriptor.h"

#include <asio/any_io_executor.hpp>
#include <asio/awaitable.hpp>

#include <exception>
#include <functional>
#include <memory>
#include <string_view>

namespace veltry {

/// An output that may be read slowly or not at all, for a command that must hear a Ctrl-C meanwhile: writing never
/// blocks the executor that it belongs to.
class Outlet {
public:
    /// `onFailure` is called once, on the executor, after the first failure(). What is written from then on is dropped.
    Outlet(const asio::any_io_executor& executor, FileDescriptor file, std::function<void()> onFailure);
    Outlet(const Outlet&) = delete;
    Outlet& operator=(const Outlet&) = delete;
    /// As drop().
    ~Outlet();

    void write(std::string_view text);
    /// Resumes while so little waits to be written that more may come.
    [[nodiscard]] asio::awaitable<void> room();
    /// Resumes when everything is written or lost.
    [[nodiscard]] asio::awaitable<void> written();
    /// Terminal::Closed if nobody reads any more, SystemError for any other failure; null if all went well.
    [[nodiscard]] std::exception_ptr failure() const;
    /// Gives up what isn't written yet.
    void drop();

private:
    struct State;
    std::shared_ptr<State> state_; // shared with a write that is going on
};

} // namespace veltry
