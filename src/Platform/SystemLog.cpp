#include "Platform/SystemLog.h"

#include <syslog.h>

#include <mutex>
#include <string>

namespace veltry::SystemLog {

namespace {

std::mutex sinkMutex;
Sink& sink()
{
    static Sink current;
    return current;
}

} // namespace

void write(Level level, std::string_view category, std::string_view message) noexcept
{
    try {
        const std::scoped_lock lock(sinkMutex);
        if (sink()) {
            sink()(level, category, message);
            return;
        }
        static const bool opened = [] {
            ::openlog("harrowick.veltry", LOG_PID, LOG_USER);
            return true;
        }();
        static_cast<void>(opened);
        const std::string line = "[" + std::string(category) + "] " + std::string(message);
        ::syslog(level == Level::error ? LOG_ERR : LOG_INFO, "%s", line.c_str());
    } catch (...) {
        return; // no memory for a line of log: nothing better to do than to go on
    }
}

void redirect(Sink next)
{
    const std::scoped_lock lock(sinkMutex);
    sink() = std::move(next);
}

} // namespace veltry::SystemLog
