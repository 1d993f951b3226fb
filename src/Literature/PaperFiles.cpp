#include "Literature/PaperFiles.h"

#include "Base/Address.h"
#include "Base/Text.h"
#include "Platform/Async/Fetch.h"
#include "Platform/Files.h"
#include "Platform/SystemError.h"
#include "Platform/TemporaryFile.h"

#include <asio/this_coro.hpp>

#include <algorithm>

namespace veltry {

namespace {

constexpr std::string_view signature = "%PDF-";
// Sites refuse clients that name no program.
constexpr const char* userAgent = "User-Agent: HarrowickVeltry/0.1 (macOS)";
constexpr auto patience = std::chrono::seconds(60);

/// The folder, or the nearest above it that is there: a file made in it can be moved to the folder without copying.
std::filesystem::path nearestFolder(std::filesystem::path folder)
{
    while (!Files::isFolder(folder) && folder.has_relative_path())
        folder = folder.parent_path();
    return folder;
}

void check(const HTTPSession::Outcome& outcome, const std::filesystem::path& folder)
{
    using Failure = HTTPSession::Failure;
    if (!outcome) {
        switch (outcome.error().kind) {
        case Failure::Kind::disk:
            throw SystemError("could not write the PDF to " + folder.string(), outcome.error().code);
        case Failure::Kind::unavailable:
            throw Failure(outcome.error());
        case Failure::Kind::transfer:
            throw PaperFileError(PaperFileError::Kind::unreachable);
        }
    }
    // A file: address has no status.
    const bool isHTTP = outcome->status != 0;
    if (isHTTP && outcome->status != 200)
        throw PaperFileError(PaperFileError::Kind::unreachable);
}

} // namespace

std::string PaperFileError::description() const
{
    switch (kind) {
    case Kind::noPDF:
        return "This paper has no open-access PDF. Open it in the browser to read it there.";
    case Kind::notAPDF:
        return "The PDF link answered with a web page, not a PDF. Open it in the browser to read it there.";
    case Kind::unreachable:
        return "The PDF did not download. Check the connection and try again.";
    }
    return {};
}

PaperFiles PaperFiles::beside(const std::filesystem::path& store)
{
    return {.folder = store.parent_path() / "Papers", .session = HTTPSession::shared()};
}

std::filesystem::path PaperFiles::location(const Paper& paper) const
{
    std::u32string stem = text::scalars(paper.id);
    // An id comes from a stranger and must not lead out of the folder.
    std::erase_if(stem, [](char32_t scalar) { return !text::isAlphanumeric(scalar); });
    return folder / (stem.empty() ? "paper.pdf" : text::fromScalars(stem) + ".pdf");
}

std::optional<std::filesystem::path> PaperFiles::cached(const Paper& paper) const
{
    std::filesystem::path path = location(paper);
    std::error_code ignored; // what can't be looked at isn't there
    return std::filesystem::exists(path, ignored) ? std::optional(std::move(path)) : std::nullopt;
}

asio::awaitable<std::filesystem::path> PaperFiles::pdf(Paper paper) const
{
    if (std::optional<std::filesystem::path> path = cached(paper))
        co_return std::move(*path);
    if (!paper.pdfURL)
        throw PaperFileError(PaperFileError::Kind::noPDF);
    // Under a name of its own until it is whole: others may look for this paper while it comes.
    TemporaryFile download(nearestFolder(folder));
    HTTPSession::Request request{
        .address = Address::absolute(*paper.pdfURL).value_or(""),
        .headers = {userAgent},
        .mayBeFile = true,
        .file = download.file().duplicate(),
        .patience = patience};
    const asio::any_io_executor executor = co_await asio::this_coro::executor;
    const HTTPSession::Outcome outcome = co_await fetch(executor, session, std::move(request));
    check(outcome, folder);
    // Many an "open-access PDF" answers 200 with a page that asks for a login.
    if (Files::readAt(download.file(), 0, signature.size()) != signature)
        throw PaperFileError(PaperFileError::Kind::notAPDF);
    Files::createPrivateFolders(folder);
    std::filesystem::path path = location(paper);
    download.keep(path);
    co_return path;
}

} // namespace veltry
