#pragma once

#include "Base/Date.h"
#include "Base/JSONValue.h"
#include "Base/UUID.h"

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace veltry {

/// A published work, as the search found it.
struct Paper {
    std::string id; ///< the OpenAlex W-id, such as "W4385245566"
    std::string title;
    std::vector<std::string> authors{}; ///< display names in the order of the work
    std::optional<std::int64_t> year{};
    std::optional<std::string> venue{};
    std::int64_t citations = 0; ///< times cited
    std::optional<std::string> doi{};
    std::string url; ///< the landing page; never empty
    std::optional<std::string> pdfURL{};
    std::optional<std::string> abstract{};

    friend bool operator==(const Paper&, const Paper&) = default;
};

/// An object with the names of the fields as keys, absent ones left out: the form that the store keeps.
[[nodiscard]] JSONValue toJSON(const Paper& paper);

/// Why an experiment names a paper. It holds a copy of the paper, which survives the paper's removal from the library.
struct Citation {
    UUID experimentID;
    Paper paper;
    std::string reason;
    Date createdAt;

    friend bool operator==(const Citation&, const Citation&) = default;
};

/// An experiment that cites a paper, seen from the paper.
struct CitingExperiment {
    UUID experimentID;
    UUID projectID;
    std::optional<UUID> conversationID;
    std::string title;  ///< the experiment's
    std::string reason; ///< the citation's

    friend bool operator==(const CitingExperiment&, const CitingExperiment&) = default;
};

} // namespace veltry
