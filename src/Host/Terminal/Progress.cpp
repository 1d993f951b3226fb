#include "Host/Terminal/Progress.h"

#include "Base/Text.h"
#include "Host/Terminal/TextTable.h"
#include "Host/Terminal/Times.h"

#include <fmt/format.h>

#include <algorithm>
#include <chrono>

namespace veltry {

namespace {

constexpr std::chrono::seconds patience(1);
constexpr std::string_view clearLine = "\r\033[K";

} // namespace

Progress::Progress(const Terminal& notes, std::string words) : notes_(notes), words_(std::move(words))
{
    if (notes.canRedraw())
        thread_ = std::jthread([this](const std::stop_token& stop) { draw(stop); });
}

Progress::~Progress() = default; // the thread is told to end, and waited for

void Progress::draw(const std::stop_token& stop)
{
    const auto begin = std::chrono::steady_clock::now();
    bool isDrawn = false;
    try {
        std::unique_lock lock(mutex_);
        while (!ended_.wait_for(lock, stop, patience, [&] { return stop.stop_requested(); })) {
            const auto passed = std::chrono::round<std::chrono::seconds>(std::chrono::steady_clock::now() - begin);
            const std::string length = Times::length(std::max(passed, patience));
            const std::string line = fmt::format("{}, {} so far", text::oneLine(words_), length);
            // The last column stays free: there a terminal begins a new line, which the redrawing wouldn't reach.
            const std::size_t width = notes_.size().value_or(Terminal::Size{.columns = 80, .rows = 24}).columns;
            notes_.write(std::string(clearLine) + fitted(line, width - 1, notes_));
            isDrawn = true;
        }
        if (isDrawn)
            notes_.write(clearLine);
    } catch (...) { // nobody reads it any more
    }
}

} // namespace veltry
