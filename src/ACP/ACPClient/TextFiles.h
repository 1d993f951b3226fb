#pragma once

#include "ACP/ACPClient/WireRecord.h"

#include <cstdint>
#include <optional>
#include <string>

namespace veltry {

/// The parameters of the agent's "fs/read_text_file".
struct ReadTextFileParams {
    std::string sessionId;
    std::string path;
    std::optional<std::int64_t> line;  ///< the first one, counted from 1
    std::optional<std::int64_t> limit; ///< how many lines
};

struct ReadTextFileResult {
    std::string content;
};

/// The parameters of the agent's "fs/write_text_file".
struct WriteTextFileParams {
    std::string sessionId;
    std::string path;
    std::string content;
};

} // namespace veltry
