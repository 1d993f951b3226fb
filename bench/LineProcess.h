#pragma once

#include "Platform/FileDescriptor.h"

#include <sys/types.h>

#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

namespace veltry::bench {

/// A child that is spoken to in lines through two pipes, by blocking reads and writes: two programs that are compared
/// meet the same client.
class LineProcess {
public:
    /// Its errors go to ours.
    LineProcess(const std::filesystem::path& executable, const std::vector<std::string>& arguments);
    LineProcess(const LineProcess&) = delete;
    LineProcess& operator=(const LineProcess&) = delete;
    /// Closes its input and waits for it.
    ~LineProcess();

    /// `line` ends in its line feed.
    void send(std::string_view line);
    /// The next line without its line feed. Throws std::runtime_error if the child ends before.
    [[nodiscard]] std::string readLine();
    /// Sends lines without waiting, and reads until as many answers have come. Throws as readLine() does.
    void exchange(std::string_view lines, std::size_t answers);
    /// Reads to the end and returns how many bytes came.
    std::size_t skipAll();

    /// Sends a tool call and returns the text that it is answered with. Throws std::runtime_error if that is an error.
    std::string call(std::string_view tool, std::string_view arguments);

private:
    [[nodiscard]] bool readMore();

    FileDescriptor input_;
    FileDescriptor output_;
    pid_t child_ = -1;
    std::string held_; // read, but no line yet
};

} // namespace veltry::bench
