#include "ACP/JSONRPCConnection/LineSplitter.h"

namespace veltry {

std::vector<std::string> LineSplitter::add(std::string_view chunk)
{
    std::vector<std::string> lines;
    buffer_ += chunk;
    std::size_t start = 0;
    std::size_t end = buffer_.find('\n', scanFrom_);
    while (end != std::string::npos) {
        lines.push_back(buffer_.substr(start, end - start));
        start = end + 1;
        end = buffer_.find('\n', start);
    }
    // Once for all lines of the chunk, since it moves what is left.
    buffer_.erase(0, start);
    scanFrom_ = buffer_.size();
    if (buffer_.empty() && buffer_.capacity() > maximumIdleCapacity)
        buffer_.shrink_to_fit(); // one huge line doesn't cost its memory for ever
    return lines;
}

} // namespace veltry
