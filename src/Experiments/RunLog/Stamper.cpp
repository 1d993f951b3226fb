#include "Experiments/RunLog/Stamper.h"

#include "Base/Date.h"
#include "Experiments/RunLog/RunLog.h"
#include "Experiments/RunLog/Stamp.h"
#include "Experiments/RunLog/StampWriter.h"
#include "Platform/FileDescriptor.h"
#include "Platform/FileWatch.h"
#include "Platform/Files.h"
#include "Platform/SystemError.h"

#include <algorithm>
#include <chrono>
#include <span>
#include <string_view>
#include <vector>

namespace veltry::RunLog {

namespace {

constexpr std::size_t pieceSize = 65536;
constexpr std::chrono::milliseconds longestSleep{1000};
/// A run that prints in tiny writes costs a look for each millisecond, the unit of the times, and not for each write.
constexpr std::chrono::milliseconds betweenLooks{1};

/// The log, open for reading. It is made here: the watch needs it, and the run's shell opens it only when it starts.
FileDescriptor made(const std::filesystem::path& log)
{
    static_cast<void>(Files::open(log, Files::forAppending));
    return Files::open(log, Files::forReading);
}

} // namespace

struct Stamper::Work {
    explicit Work(const std::filesystem::path& log) : reader(made(log)), writer(times(log)), watch(log) {}

    /// Stamps what is new up to `size`.
    void look(std::uint64_t size) noexcept;

    void look() noexcept { look(Files::size(reader)); }

    void follow(const std::stop_token& stop) noexcept;
    /// What comes next in the log.
    [[nodiscard]] std::string_view read(std::uint64_t atMost) noexcept;

    FileDescriptor reader;
    StampWriter writer;
    FileWatch watch;
    LineScanner scanner;
    std::vector<char> buffer = std::vector<char>(pieceSize);
};

void Stamper::Work::look(std::uint64_t size) noexcept
{
    const Date seen = Date::now();
    while (scanner.offset() < size) {
        const std::string_view piece = read(size - scanner.offset());
        if (piece.empty())
            break; // cut short meanwhile, or unreadable: the next look begins where this one ended
        scanner.scan(piece, [&](std::uint64_t offset) { writer.add(Stamp::at(offset, seen)); });
    }
    writer.flush();
}

std::string_view Stamper::Work::read(std::uint64_t atMost) noexcept
{
    const std::size_t wanted = std::min<std::uint64_t>(buffer.size(), atMost);
    try {
        return {buffer.data(), Files::readInto(std::span(buffer).first(wanted), reader, scanner.offset())};
    } catch (const SystemError&) {
        return {};
    }
}

void Stamper::Work::follow(const std::stop_token& stop) noexcept
{
    while (!stop.stop_requested()) {
        static_cast<void>(watch.wait(longestSleep));
        if (stop.stop_requested())
            break; // the last look is for stop() to take
        look();
        std::this_thread::sleep_for(betweenLooks);
    }
}

Stamper::Stamper(std::filesystem::path log) : log_(std::move(log)) {}

Stamper::~Stamper()
{
    stop();
}

void Stamper::start()
{
    auto work = std::make_unique<Work>(log_);
    work->look(); // what was written before the watch was in place
    thread_ = std::jthread([&follower = *work](const std::stop_token& stop) { follower.follow(stop); });
    work_ = std::move(work);
}

void Stamper::stop() noexcept
{
    if (!work_)
        return;
    // Taken now, and not when the look that goes on has ended: a process that prints on may be faster than we are.
    const std::uint64_t size = Files::size(work_->reader);
    thread_.request_stop();
    work_->watch.wake();
    thread_.join();
    work_->look(size);
    work_.reset();
}

} // namespace veltry::RunLog
