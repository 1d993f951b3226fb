#pragma once

#include <chrono>
#include <string>

/// What a program does with the terminal at standard input while it is in the foreground. By the main thread.
namespace veltry {

/// While it lives Ctrl-C does nothing here, for it means a child that has the terminal.
class InterruptIgnored {
public:
    InterruptIgnored();
    ~InterruptIgnored();
    InterruptIgnored(const InterruptIgnored&) = delete;
    InterruptIgnored& operator=(const InterruptIgnored&) = delete;

private:
    void (*before_)(int signal);
};

/// While it lives each key arrives as it is typed and isn't echoed; Ctrl-C stays a signal. Without a terminal, or in
/// the background, nothing is changed and no key comes. One at a time.
class TypedKeys {
public:
    TypedKeys();
    ~TypedKeys();
    TypedKeys(const TypedKeys&) = delete;
    TypedKeys& operator=(const TypedKeys&) = delete;

    /// Waits for keys and returns what was typed, a special key as the sequence that the terminal sends; empty if
    /// nothing was typed in that time.
    [[nodiscard]] std::string read(std::chrono::milliseconds longest);

    /// The terminal as it was before. May be called by a signal's handler, and when there is none.
    static void restore() noexcept;

private:
    bool isOpen_ = false;
};

} // namespace veltry
