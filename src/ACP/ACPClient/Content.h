#pragma once

#include "ACP/ACPClient/WireRecord.h"

#include <optional>
#include <string>
#include <utility>
#include <variant>

namespace veltry {

/// A piece of what is said. What isn't text or a link (images, audio, later kinds) passes through whole, not
/// understood.
struct ContentBlock {
    struct Text {
        std::string text;
        friend bool operator==(const Text&, const Text&) = default;
    };

    struct ResourceLink {
        std::string uri;
        std::string name;
        friend bool operator==(const ResourceLink&, const ResourceLink&) = default;
    };

    struct Other {
        std::string type;
        JSONValue raw; ///< the whole object, written back as it came
        friend bool operator==(const Other&, const Other&) = default;
    };

    [[nodiscard]] static ContentBlock text(std::string text) { return {Text{std::move(text)}}; }

    std::variant<Text, ResourceLink, Other> value;

    friend bool operator==(const ContentBlock&, const ContentBlock&) = default;
};

/// A block as it streams in; chunks of one message share its id, where the agent tells it.
struct ContentChunk {
    ContentBlock content;
    std::optional<std::string> messageId;
};

} // namespace veltry
