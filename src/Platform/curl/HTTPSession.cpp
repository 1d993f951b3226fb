#include "Platform/HTTPSession.h"

#include "Base/Address.h"
#include "Platform/Files.h"
#include "Platform/curl/CurlLibrary.h"

#include <unistd.h>

#include <array>
#include <csignal>
#include <cstring>
#include <optional>
#include <string_view>
#include <unordered_map>

namespace veltry {

namespace {

using Failure = HTTPSession::Failure;

// For redirections too: no server may lead us to a file of this computer.
constexpr const char* protocols = "http,https";
constexpr long mostRedirects = 20;
constexpr int longestPoll = 60'000; // milliseconds; every event ends it sooner
constexpr std::size_t pieceSize = 64U << 10;

} // namespace

/// Takes a response's body, in memory or in the request's file, and keeps the first reason why it couldn't.
class HTTPSession::Body {
public:
    explicit Body(const Request& request) : request_(request) {}

    bool take(std::string_view bytes)
    {
        if (!request_.file && bytes.size() > request_.longestBody - kept_.size()) {
            failure_.emplace(Failure::Kind::transfer, "The answer is longer than it may be.");
            return false;
        }
        if (!request_.file) {
            kept_ += bytes;
            return true;
        }
        while (!bytes.empty()) {
            const ssize_t count = ::write(request_.file.get(), bytes.data(), bytes.size());
            if (count < 0 && errno == EINTR)
                continue;
            if (count < 0) {
                failOnDisk();
                return false;
            }
            bytes.remove_prefix(static_cast<std::size_t>(count));
        }
        return true;
    }

    /// The outcome of a transfer that came to its end.
    Outcome end(int status)
    {
        // EINVAL: a pipe has no disk to wait for.
        if (!failure_ && request_.file && ::fsync(request_.file.get()) != 0 && errno != EINVAL)
            failOnDisk();
        if (failure_)
            return std::unexpected(*failure_);
        return Response{.status = status, .body = std::move(kept_)};
    }

    [[nodiscard]] const std::optional<Failure>& failure() const { return failure_; }

private:
    void failOnDisk()
    {
        const int code = errno;
        failure_.emplace(Failure::Kind::disk, std::string("could not write what came: ") + std::strerror(code), code);
    }

    const Request& request_;
    std::string kept_;
    std::optional<Failure> failure_;
};

/// One request under way.
struct HTTPSession::Transfer {
    explicit Transfer(Job what) : job(std::move(what)) {}

    void complete(Outcome outcome)
    {
        job.request.file.reset();
        job.completion(std::move(outcome));
    }

    /// A plain file is read at once. Not by libcurl, which would wait at a FIFO and read a device for ever.
    Outcome readFile()
    {
        const std::optional<std::string> path = Address::filePath(job.request.address);
        const FileDescriptor file = path ? Files::tryOpen(*path, Files::forReadingPlain) : FileDescriptor();
        if (!file)
            return std::unexpected(Failure(Failure::Kind::transfer, "There is no such file."));
        std::array<char, pieceSize> piece{};
        while (true) {
            const ssize_t count = ::read(file.get(), piece.data(), piece.size());
            if (count < 0)
                return std::unexpected(Failure(Failure::Kind::transfer, "The file can't be read."));
            if (count == 0 || !body.take({piece.data(), static_cast<std::size_t>(count)}))
                return body.end(0);
        }
    }

    static std::size_t takePiece(char* bytes, std::size_t /*one*/, std::size_t count, void* transfer)
    {
        return static_cast<Transfer*>(transfer)->body.take({bytes, count}) ? count : 0; // less ends the transfer
    }

    Job job;
    Body body{job.request};
    std::array<char, CURL_ERROR_SIZE> words{}; // why it failed
    curl_slist* headers = nullptr;
};

/// All requests under way, of libcurl's multi interface.
class HTTPSession::Transfers {
public:
    explicit Transfers(const CurlLibrary& curl) : curl_(curl), multi_(curl.multiInit())
    {
        if (!multi_)
            throw Failure(Failure::Kind::unavailable, "libcurl could not be set up.");
    }

    Transfers(const Transfers&) = delete;
    Transfers& operator=(const Transfers&) = delete;

    ~Transfers()
    {
        while (!open_.empty())
            release(open_.begin()->first);
        curl_.multiCleanup(multi_);
    }

    void add(Job job)
    {
        auto transfer = std::make_unique<Transfer>(std::move(job));
        const Request& request = transfer->job.request;
        const std::string scheme = Address::scheme(request.address);
        if (scheme == "file" && request.mayBeFile) {
            transfer->complete(transfer->readFile());
        } else if (scheme != "http" && scheme != "https") {
            transfer->complete(std::unexpected(Failure(
                Failure::Kind::transfer, "Only addresses that begin with http:// or https:// can be fetched.")));
        } else if (CURL* handle = curl_.easyInit(); handle && setUp(handle, *transfer)) {
            open_.emplace(handle, std::move(transfer));
            curl_.multiAddHandle(multi_, handle);
        } else {
            curl_.slistFreeAll(transfer->headers);
            curl_.easyCleanup(handle);
            transfer->complete(std::unexpected(Failure(Failure::Kind::transfer, "libcurl refuses the request.")));
        }
    }

    /// Moves what can be moved, completes what has ended, and waits for more or for wake().
    void step()
    {
        int count = 0;
        curl_.multiPerform(multi_, &count);
        while (const CURLMsg* message = curl_.multiInfoRead(multi_, &count))
            if (message->msg == CURLMSG_DONE)
                finish(message->easy_handle, message->data.result);
        curl_.multiPoll(multi_, nullptr, 0, longestPoll, nullptr);
    }

    /// May be called from any thread. Ends the wait that goes on, or else the next one.
    void wake() noexcept { curl_.multiWakeup(multi_); }

private:
    bool setUp(CURL* handle, Transfer& transfer) const
    {
        const Request& request = transfer.job.request;
        for (const std::string& header : request.headers)
            transfer.headers = curl_.slistAppend(transfer.headers, header.c_str());
        const auto set = [&](CURLoption option, auto value) {
            return curl_.easySetopt(handle, option, value) == CURLE_OK;
        };
        const auto patience = static_cast<long>(request.patience.count());
        set(CURLOPT_QUICK_EXIT, 1L);      // a look-up of a name that hangs doesn't hold the session's end
        set(CURLOPT_ACCEPT_ENCODING, ""); // whatever the library can unpack
        // Signals off, since a time-out by SIGALRM suits no thread. A transfer may take any time as long as it moves:
        // it ends after a `patience` in which less than a byte a second came.
        return set(CURLOPT_URL, request.address.c_str()) && set(CURLOPT_PROTOCOLS_STR, protocols) &&
               set(CURLOPT_REDIR_PROTOCOLS_STR, protocols) && set(CURLOPT_FOLLOWLOCATION, 1L) &&
               set(CURLOPT_MAXREDIRS, mostRedirects) && set(CURLOPT_NOSIGNAL, 1L) &&
               set(CURLOPT_CONNECTTIMEOUT, patience) && set(CURLOPT_LOW_SPEED_TIME, patience) &&
               set(CURLOPT_LOW_SPEED_LIMIT, 1L) && set(CURLOPT_HTTPHEADER, transfer.headers) &&
               set(CURLOPT_WRITEFUNCTION, &Transfer::takePiece) && set(CURLOPT_WRITEDATA, &transfer) &&
               set(CURLOPT_ERRORBUFFER, transfer.words.data());
    }

    void finish(CURL* handle, CURLcode code)
    {
        long status = 0;
        // Before the release, which frees the handle.
        curl_.easyGetinfo(handle, CURLINFO_RESPONSE_CODE, &status);
        const std::unique_ptr<Transfer> transfer = release(handle);
        if (code == CURLE_OK)
            transfer->complete(transfer->body.end(static_cast<int>(status)));
        else if (const std::optional<Failure>& failure = transfer->body.failure())
            transfer->complete(std::unexpected(*failure));
        else
            transfer->complete(std::unexpected(Failure(
                Failure::Kind::transfer, transfer->words[0] ? transfer->words.data() : curl_.easyStrerror(code))));
    }

    /// Ends it for libcurl.
    std::unique_ptr<Transfer> release(CURL* handle)
    {
        std::unique_ptr<Transfer> transfer = std::move(open_.extract(handle).mapped());
        // In this order: a handle leaves the others before it is freed, and its headers are ours until then.
        curl_.multiRemoveHandle(multi_, handle);
        curl_.easyCleanup(handle);
        curl_.slistFreeAll(transfer->headers);
        return transfer;
    }

    const CurlLibrary& curl_;
    CURLM* multi_;
    std::unordered_map<CURL*, std::unique_ptr<Transfer>> open_;
};

HTTPSession::~HTTPSession()
{
    {
        const std::scoped_lock lock(mutex_);
        stopping_ = true;
        // Under the lock: the thread takes its transfers away under it before it frees them.
        if (transfers_)
            transfers_->wake();
    }
    if (thread_.joinable())
        thread_.join();
}

const std::shared_ptr<HTTPSession>& HTTPSession::shared()
{
    static const auto session = std::make_shared<HTTPSession>();
    return session;
}

void HTTPSession::get(Request request, Completion completion)
{
    const std::scoped_lock lock(mutex_);
    waiting_.push_back({std::move(request), std::move(completion)});
    if (transfers_)
        transfers_->wake();
    if (running_)
        return;
    if (thread_.joinable())
        thread_.join(); // one that had no library, and has nothing left to do
    thread_ = std::thread([this] { run(); });
    running_ = true;
}

/// The thread's life. Out of memory here ends the process: there is nobody to tell.
void HTTPSession::run() noexcept
{
    sigset_t all;
    ::sigfillset(&all);
    // Signals are the main thread's, and a lost peer is an error here.
    ::pthread_sigmask(SIG_BLOCK, &all, nullptr);
    try {
        Transfers transfers(CurlLibrary::load());
        work(transfers);
    } catch (const Failure& failure) {
        refuse(failure);
    }
}

void HTTPSession::work(Transfers& transfers)
{
    std::vector<Job> jobs;
    while (true) {
        {
            const std::scoped_lock lock(mutex_);
            transfers_ = stopping_ ? nullptr : &transfers;
            if (stopping_)
                return;
            jobs.swap(waiting_);
        }
        // Without the lock, since a completion may be called at once and may ask for more.
        for (Job& job : jobs)
            transfers.add(std::move(job));
        jobs.clear();
        transfers.step();
    }
}

/// Without the library every request fails, until the thread has nothing left to do; the next request tries again.
void HTTPSession::refuse(const Failure& failure)
{
    while (true) {
        std::vector<Job> jobs;
        {
            const std::scoped_lock lock(mutex_);
            jobs.swap(waiting_);
            // Under the lock of the look: a request that comes after it finds no thread and starts one.
            if (jobs.empty()) {
                running_ = false;
                return;
            }
        }
        for (Job& job : jobs)
            job.completion(std::unexpected(failure));
    }
}

} // namespace veltry
