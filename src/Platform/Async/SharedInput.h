#pragma once

#include "Platform/FileDescriptor.h"

#include <asio/any_io_executor.hpp>
#include <asio/awaitable.hpp>
#include <asio/posix/stream_descriptor.hpp>

#include <optional>
#include <span>
#include <string_view>

namespace veltry {

/// Input that other processes may share: a pipe, a socket, a terminal or a plain file, whose flags stay as they are.
/// Belongs to one executor, on which everything is called; one task reads.
class SharedInput {
public:
    /// Throws SystemError.
    SharedInput(const asio::any_io_executor& executor, FileDescriptor file);

    /// Waits until there is input or its end, or until cancel(). Whatever else the executor has to do gets its turn.
    [[nodiscard]] asio::awaitable<void> ready();
    /// Ends a wait that goes on.
    void cancel() noexcept;

    /// Takes what is there, as far as the buffer holds it: a part of the buffer, empty where there is nothing after
    /// all; nothing at the end of the input. Doesn't wait. Throws SystemError.
    [[nodiscard]] std::optional<std::string_view> read(std::span<char> buffer);

private:
    asio::any_io_executor executor_;
    FileDescriptor file_;
    std::optional<asio::posix::stream_descriptor> readiness_; // nothing where input is always ready
};

} // namespace veltry
