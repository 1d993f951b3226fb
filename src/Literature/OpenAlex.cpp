#include "Literature/OpenAlex.h"

#include "Base/Address.h"
#include "Literature/OpenAlexAnswer.h"
#include "Platform/Async/Fetch.h"
#include "Platform/ProcessFacts.h"

#include <asio/this_coro.hpp>
#include <fmt/format.h>

#include <algorithm>

namespace veltry {

namespace {

constexpr const char* publicBase = "https://api.openalex.org";
// What a work is read from; fewer fields make smaller answers.
constexpr const char* fields =
    "id,display_name,publication_year,authorships,primary_location,cited_by_count,doi,abstract_inverted_index,"
    "best_oa_location,locations";

bool isWorkID(std::string_view id)
{
    return id.size() > 1 && id.starts_with('W') &&
           std::ranges::all_of(id.substr(1), [](char c) { return c >= '0' && c <= '9'; });
}

/// The body of a whole answer, nothing for a 404.
std::optional<std::string> bodyOf(HTTPSession::Response response, bool keyed)
{
    using Kind = PaperSearchError::Kind;
    switch (response.status) {
    case 200:
        return std::move(response.body);
    case 404:
        return std::nullopt;
    // Without a key the service refuses nobody: then it is somebody in between.
    case 401:
    case 403:
        throw PaperSearchError(keyed ? Kind::keyRefused : Kind::unreachable);
    case 429:
        throw PaperSearchError(Kind::outOfSearches, keyed);
    default:
        throw PaperSearchError(Kind::unreachable);
    }
}

} // namespace

std::string PaperSearchError::description() const
{
    switch (kind) {
    case Kind::outOfSearches:
        return keyed ? "This OpenAlex key's searches are used up for today. Search again tomorrow."
                     : "OpenAlex's free searches from this network are used up for today. Add an OpenAlex key in "
                       "Settings › Literature, or search again tomorrow.";
    case Kind::keyRefused:
        return "OpenAlex refused the key. Check it in Settings › Literature.";
    case Kind::unreachable:
        return "OpenAlex did not answer. Check the connection and search again.";
    case Kind::unreadable:
        return "OpenAlex answered with something Veltry could not read. Search again.";
    }
    return {};
}

OpenAlex::OpenAlex(Key key, std::shared_ptr<HTTPSession> session)
    : key_(std::move(key)), session_(std::move(session)), endpoint_(endpoint())
{
}

std::string OpenAlex::endpoint()
{
    std::string base = ProcessFacts::variable(baseVariable).value_or("");
    if (base.empty())
        base = publicBase;
    while (base.ends_with('/'))
        base.pop_back();
    return base + "/works";
}

asio::awaitable<PaperPage> OpenAlex::search(std::string query) const
{
    // Both end a filter's value or begin another one.
    std::ranges::replace(query, ',', ' ');
    std::ranges::replace(query, '|', ' ');
    std::string address = fmt::format(
        "{}?filter={}&per_page={}&select={}", endpoint_, Address::queryValue("title_and_abstract.search:" + query),
        pageSize, fields);
    const std::optional<std::string> body = co_await answer(std::move(address));
    if (!body)
        throw PaperSearchError(PaperSearchError::Kind::unreachable);
    co_return OpenAlexAnswer::page(*body);
}

asio::awaitable<std::optional<Paper>> OpenAlex::paper(std::string id) const
{
    if (!isWorkID(id))
        co_return std::nullopt;
    std::string address = fmt::format("{}/{}?select={}", endpoint_, id, fields);
    const std::optional<std::string> body = co_await answer(std::move(address));
    if (!body)
        co_return std::nullopt;
    co_return OpenAlexAnswer::work(*body);
}

asio::awaitable<std::optional<std::string>> OpenAlex::answer(std::string address) const
{
    const std::optional<std::string> key = key_();
    const bool keyed = key && !key->empty();
    HTTPSession::Request request{.address = std::move(address)};
    if (keyed)
        request.address += "&api_key=" + Address::queryValue(*key);
    const asio::any_io_executor executor = co_await asio::this_coro::executor;
    HTTPSession::Outcome outcome = co_await fetch(executor, session_, std::move(request));
    if (outcome)
        co_return bodyOf(std::move(*outcome), keyed);
    // The library itself is missing, and advice about the connection would mislead.
    if (outcome.error().kind == HTTPSession::Failure::Kind::unavailable)
        throw HTTPSession::Failure(outcome.error());
    throw PaperSearchError(PaperSearchError::Kind::unreachable);
}

} // namespace veltry
