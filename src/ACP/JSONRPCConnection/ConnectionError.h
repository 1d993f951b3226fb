#pragma once

#include "Base/Error.h"

#include <cstdint>
#include <string>
#include <utility>

namespace veltry {

/// Why a connection can't be used any more.
struct ConnectionError : Error {
    enum class Kind {
        agentExited, ///< the process at the other end is gone; `status` is its exit status
        decoding,    ///< what came could not be read; `text` says what
        closed,      ///< the input ended with nobody to say why
    };

    [[nodiscard]] static ConnectionError agentExited(std::int32_t status) { return {Kind::agentExited, status, {}}; }
    [[nodiscard]] static ConnectionError decoding(std::string text) { return {Kind::decoding, 0, std::move(text)}; }
    [[nodiscard]] static ConnectionError closed() { return {Kind::closed, 0, {}}; }

    [[nodiscard]] std::string description() const override
    {
        switch (kind) {
        case Kind::agentExited:
            return "the agent exited with status " + std::to_string(status);
        case Kind::decoding:
            return "the peer sent what can't be read: " + text;
        case Kind::closed:
            break;
        }
        return "the connection is closed";
    }

    Kind kind;
    std::int32_t status;
    std::string text;

private:
    ConnectionError(Kind what, std::int32_t exitStatus, std::string reason)
        : kind(what), status(exitStatus), text(std::move(reason))
    {
    }
};

} // namespace veltry
