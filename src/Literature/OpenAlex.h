#pragma once

#include "Literature/PaperSearch.h"
#include "Platform/HTTPSession.h"

#include <functional>
#include <memory>
#include <optional>
#include <string>

namespace veltry {

/// The client of the public OpenAlex API. Each call is one request; nothing is tried again.
///
/// A field that is added to what is read of a work needs three changes: the record and its reader in
/// OpenAlexAnswer.cpp, and the list of fields that is asked for in OpenAlex.cpp.
class OpenAlex : public PaperSearch {
public:
    /// Gives the person's key, or nothing; an empty one counts as none. Called once a request.
    using Key = std::function<std::optional<std::string>()>;

    /// Asks the service at endpoint().
    OpenAlex(Key key, std::shared_ptr<HTTPSession> session);

    [[nodiscard]] asio::awaitable<PaperPage> search(std::string query) const override;
    /// An id that isn't "W" and digits gives nothing, without a request.
    [[nodiscard]] asio::awaitable<std::optional<Paper>> paper(std::string id) const override;

    static constexpr int pageSize = 25;
    static constexpr const char* keyVariable = "OPENALEX_API_KEY";
    /// Names another base address: a mirror, a proxy, a test.
    static constexpr const char* baseVariable = "OPENALEX_BASE_URL";
    /// The address of all works, on the base that the environment names, or else on the public service's.
    [[nodiscard]] static std::string endpoint();
    /// In front of each work's id, with its closing slash: the address that people see.
    static constexpr const char* site = "https://openalex.org/";

private:
    /// The body, or nothing for a 404. `address` ends with its query, to which the key is added.
    [[nodiscard]] asio::awaitable<std::optional<std::string>> answer(std::string address) const;

    Key key_;
    std::shared_ptr<HTTPSession> session_;
    std::string endpoint_;
};

} // namespace veltry
