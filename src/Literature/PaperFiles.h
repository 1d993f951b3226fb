#pragma once

#include "Base/Error.h"
#include "Platform/HTTPSession.h"
#include "Projects/Paper.h"

#include <asio/awaitable.hpp>

#include <filesystem>
#include <memory>
#include <optional>
#include <string>

namespace veltry {

/// A PDF could not be had. The text says what to do next, to a person or an agent.
struct PaperFileError : Error {
    enum class Kind { noPDF, notAPDF, unreachable };

    explicit PaperFileError(Kind what) : kind(what) {}

    [[nodiscard]] std::string description() const override;

    Kind kind;
};

/// The PDFs of papers on the disk, one file a paper. Each is whole and began as a PDF does when it came: many links
/// that promise a PDF answer with a web page.
///
/// Several downloads of one paper, from several processes too, don't harm each other: the last one stays.
struct PaperFiles {
    std::filesystem::path folder; ///< made when the first PDF has come
    std::shared_ptr<HTTPSession> session;

    /// In the folder "Papers" beside the store's file, fetched by the process's session.
    [[nodiscard]] static PaperFiles beside(const std::filesystem::path& store);

    /// Where the paper's PDF belongs: "W4385245566.pdf". Touches nothing.
    [[nodiscard]] std::filesystem::path location(const Paper& paper) const;
    /// The same, if a file lies there.
    [[nodiscard]] std::optional<std::filesystem::path> cached(const Paper& paper) const;

    /// The PDF's path; one that isn't cached is downloaded first. A failure leaves nothing behind. Throws
    /// PaperFileError, SystemError where the disk refuses, and HTTPSession::Failure where this machine can't make
    /// requests at all. The record must live until then.
    [[nodiscard]] asio::awaitable<std::filesystem::path> pdf(Paper paper) const;
};

} // namespace veltry
