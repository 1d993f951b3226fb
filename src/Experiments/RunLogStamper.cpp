#include "Experiments/RunLogStamper.h"

#include "Base/Date.h"
#include "Experiments/RunLog.h"
#include "Experiments/RunLogStamp.h"
#include "Experiments/RunLogStampWriter.h"
#include "Platform/FileDescriptor.h"
#include "Platform/FileWatch.h"
#include "Platform/Files.h"

#include <fcntl.h>

#include <algorithm>
#include <chrono>
#include <span>
#include <vector>

namespace veltry::RunLog {

namespace {

constexpr std::size_t pieceSize = 64 * 1024;
constexpr std::chrono::milliseconds longestSleep{1000};
/// A run that prints in tiny writes costs a look for each millisecond, the unit of the times, and not for each write.
constexpr std::chrono::milliseconds betweenLooks{1};

} // namespace

struct Stamper::Work {
    explicit Work(const std::filesystem::path& log)
        : reader(Files::open(log, O_RDONLY | O_CREAT)), writer(times(log)), watch(log)
    {
    }

    /// Stamps what is new up to `size`.
    void look(std::uint64_t size) noexcept;

    void look() noexcept { look(Files::size(reader)); }

    void follow(const std::stop_token& stop) noexcept;

    FileDescriptor reader;
    StampWriter writer;
    FileWatch watch;
    LineScanner scanner;
    std::vector<char> buffer; // made when there is something to read
};

void Stamper::Work::look(std::uint64_t size) noexcept
{
    if (size <= scanner.offset())
        return;
    try {
        const Date seen = Date::now();
        buffer.resize(pieceSize);
        while (scanner.offset() < size) {
            const std::size_t wanted = std::min<std::uint64_t>(buffer.size(), size - scanner.offset());
            const std::size_t got = Files::readInto(std::span(buffer).first(wanted), reader, scanner.offset());
            if (got == 0)
                break; // cut short meanwhile
            scanner.scan({buffer.data(), got}, [&](std::uint64_t offset) { writer.add(Stamp::at(offset, seen)); });
        }
    } catch (const std::exception&) { // it couldn't be read: the next look begins where this one ended
    }
    writer.flush();
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
