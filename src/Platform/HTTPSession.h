#pragma once

#include "Base/Error.h"
#include "Platform/FileDescriptor.h"

#include <chrono>
#include <cstddef>
#include <expected>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace veltry {

/// Carries out GET requests, any number at once, on one background thread.
///
/// Neither the thread nor the transfer library exists before the first request, so that a process which makes none pays
/// for none. Transfers speak http and https, follow redirects within these two, check certificates and go through the
/// proxies that the environment names (`https_proxy`, `no_proxy`).
class HTTPSession {
public:
    struct Request {
        std::string address;                ///< absolute and percent-encoded
        std::vector<std::string> headers{}; ///< whole lines, such as "User-Agent: x"
        bool mayBeFile = false;             ///< a file: address is read as well; a redirect never leads to one
        /// Takes the body, which is on the disk when the request has succeeded. None: the response holds the body.
        FileDescriptor file{};
        std::size_t longestBody = 16U << 20; ///< bytes, where the response holds the body; a longer one is a failure
        /// For the connection, and for each stand-still of the transfer.
        std::chrono::seconds patience = std::chrono::seconds(60);
    };

    struct Response {
        int status = 0;   ///< HTTP's; 0 for what isn't HTTP
        std::string body; ///< as it was before any compression on the way
    };

    /// No whole response came.
    struct Failure : Error {
        enum class Kind {
            transfer,   ///< refused, not reached, cut off, or a stand-still
            disk,       ///< the body could not be written; `code` says why
            unavailable ///< this machine can't make requests at all: the library is missing
        };

        Failure(Kind what, std::string why, int errorNumber = 0) : kind(what), reason(std::move(why)), code(errorNumber)
        {
        }

        [[nodiscard]] std::string description() const override { return reason; }

        Kind kind;
        std::string reason;
        int code; ///< as errno has it, for Kind::disk
    };

    using Outcome = std::expected<Response, Failure>;
    /// Called once, on the session's thread; it must not block or throw.
    using Completion = std::function<void(Outcome outcome)>;

    HTTPSession() = default;
    HTTPSession(const HTTPSession&) = delete;
    HTTPSession& operator=(const HTTPSession&) = delete;
    /// Drops what is under way, whose completions are then never called, and waits for the thread.
    ~HTTPSession();

    /// The process's own. A process that has made requests with it leaves by _exit(2), since exit(3) would tear the TLS
    /// library down beside the thread.
    [[nodiscard]] static const std::shared_ptr<HTTPSession>& shared();

    /// Begins the request and returns at once; may be called from any thread. Throws std::system_error if no thread
    /// can be started.
    void get(Request request, Completion completion);

private:
    struct Job {
        Request request;
        Completion completion;
    };

    class Body;
    struct Transfer;
    class Transfers;

    void run() noexcept;
    void work(Transfers& transfers);
    void refuse(const Failure& failure);

    std::mutex mutex_; // guards all below
    std::vector<Job> waiting_;
    bool running_ = false; // the thread looks at `waiting_` again before it ends
    bool stopping_ = false;
    Transfers* transfers_ = nullptr; // the thread's, to wake it
    std::thread thread_;
};

} // namespace veltry
