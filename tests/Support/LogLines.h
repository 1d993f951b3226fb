#pragma once

#include "Platform/SystemLog.h"

#include <string>
#include <string_view>
#include <vector>

namespace veltry::test {

/// Collects the lines of one category of the system log.
class LogLines {
public:
    explicit LogLines(std::string_view category)
    {
        SystemLog::redirect([this, category](SystemLog::Level, std::string_view found, std::string_view message) {
            if (found == category)
                lines.emplace_back(message);
        });
    }
    LogLines(const LogLines&) = delete;
    LogLines& operator=(const LogLines&) = delete;
    ~LogLines() { SystemLog::redirect({}); }

    std::vector<std::string> lines;
};

} // namespace veltry::test
