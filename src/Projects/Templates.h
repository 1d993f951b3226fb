#pragma once

#include "Base/Error.h"
#include "Platform/HTTPSession.h"
#include "Platform/Leftover.h"

#include <asio/awaitable.hpp>

#include <filesystem>
#include <memory>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

/// Starters for new projects: folders in a gzip-compressed tar archive, below its one top folder. In an archive whose
/// members all begin with "./" that dot is the top folder unless one other holds everything.
namespace veltry::Templates {

/// A template could not be had. The message is for a person, as it stands.
struct Failure : Error {
    explicit Failure(std::string text) : message(std::move(text)) {}
    [[nodiscard]] std::string description() const override { return message; }
    std::string message;
};

/// The archive holds no template of that name.
struct Missing : Failure {
    using Failure::Failure;
};

/// A web address, absolute and percent-encoded.
struct WebAddress {
    std::string text;
    friend bool operator==(const WebAddress&, const WebAddress&) = default;
};

/// Where an archive is: a file, which is only read, or an address to download it from.
using Archive = std::variant<std::filesystem::path, WebAddress>;

/// What a person writes for an archive: an address, which has a scheme, or a path. A file: address is a path.
[[nodiscard]] Archive archive(std::string_view location);
/// The archive that is used when nobody names one: what `VELTRY_TEMPLATES_ARCHIVE` says, else the one that was chosen
/// when the program was built, which by default is installed beside it.
[[nodiscard]] Archive archive();

/// False for what can't be a template's name: that has small letters, digits and hyphens.
[[nodiscard]] bool isName(std::string_view name);

/// The archive as a file that tar can read. A download goes away with it, and where a signal ends the process.
class LocalArchive {
public:
    LocalArchive() = default; ///< what an awaitable holds before there is one
    explicit LocalArchive(std::filesystem::path file) : file_(std::move(file)) {}
    explicit LocalArchive(std::unique_ptr<Leftover> downloaded)
        : file_(downloaded->path()), downloaded_(std::move(downloaded))
    {
    }

    [[nodiscard]] const std::filesystem::path& path() const noexcept { return file_; }

private:
    std::filesystem::path file_;
    std::unique_ptr<Leftover> downloaded_; // nothing for a file that was there
};

/// Downloads what isn't a file: for who wants several things of one archive. Failures as fetch() has them.
[[nodiscard]] asio::awaitable<LocalArchive> local(
    Archive from, std::shared_ptr<HTTPSession> session = HTTPSession::shared());

/// Unpacks the template `name` into `folder`, which exists. Nothing is written outside of it, whatever the archive
/// holds, and nothing that is called .git in any letter case: git would run what its settings and hooks say. Where tar
/// fails on the way, what it has written stays.
///
/// Blocks its executor while tar works, not while the archive is downloaded. Throws Failure; HTTPSession::Failure and
/// SystemError, as they are; asio::system_error if it was cancelled.
[[nodiscard]] asio::awaitable<void> fetch(
    std::string name, std::filesystem::path folder, Archive from,
    std::shared_ptr<HTTPSession> session = HTTPSession::shared());

/// The names of the templates in the archive, sorted. Executor and failures as fetch() has them.
[[nodiscard]] asio::awaitable<std::vector<std::string>> names(
    Archive from, std::shared_ptr<HTTPSession> session = HTTPSession::shared());

} // namespace veltry::Templates
