#pragma once

#include "Base/Error.h"
#include "Projects/Paper.h"

#include <asio/awaitable.hpp>

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace veltry {

/// The first results of a search.
struct PaperPage {
    std::vector<Paper> papers; ///< the most relevant first
    std::int64_t total = 0;    ///< how many works match, on all pages

    friend bool operator==(const PaperPage&, const PaperPage&) = default;
};

/// The service didn't give what it was asked for. The text says what to do next, to a person or an agent.
struct PaperSearchError : Error {
    enum class Kind {
        outOfSearches, ///< the day's budget is used up: the key's, or without one the network's
        keyRefused,
        unreachable,
        unreadable,
    };

    explicit PaperSearchError(Kind what, bool withKey = false) : kind(what), keyed(withKey) {}

    [[nodiscard]] std::string description() const override;

    Kind kind;
    bool keyed; ///< for outOfSearches: whose budget it is
};

/// A service that knows published papers. May be used from several tasks at once; it outlives those that wait for it.
/// Throws PaperSearchError, and HTTPSession::Failure where this machine can't make requests at all.
class PaperSearch {
public:
    PaperSearch() = default;
    PaperSearch(const PaperSearch&) = delete;
    PaperSearch& operator=(const PaperSearch&) = delete;
    virtual ~PaperSearch() = default;

    /// The papers whose titles and abstracts hold these words.
    [[nodiscard]] virtual asio::awaitable<PaperPage> search(std::string query) const = 0;
    /// The paper with that id, or nothing if the service has no such work.
    [[nodiscard]] virtual asio::awaitable<std::optional<Paper>> paper(std::string id) const = 0;
};

} // namespace veltry
