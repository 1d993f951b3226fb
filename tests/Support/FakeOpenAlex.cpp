#include "Support/FakeOpenAlex.h"

#include "Support/Eventually.h"

#include <httplib.h>

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <mutex>
#include <stdexcept>
#include <thread>

namespace veltry::test {

namespace {

constexpr std::size_t threads = 32; // each connection takes one while it lives

void clearProxies()
{
    for (const char* name :
         {"http_proxy", "https_proxy", "all_proxy", "no_proxy", "HTTPS_PROXY", "ALL_PROXY", "NO_PROXY"})
        ::unsetenv(name);
}

} // namespace

struct FakeOpenAlex::Server {
    explicit Server(std::unique_ptr<httplib::Server> what, std::string scheme) : http(std::move(what))
    {
        clearProxies();
        http->new_task_queue = [] { return new httplib::ThreadPool(threads); };
        http->set_keep_alive_max_count(1);
        http->Get(
            ".*", [this](const httplib::Request& request, httplib::Response& response) { answer(request, response); });
        address = scheme + "://127.0.0.1:" + std::to_string(http->bind_to_any_port("127.0.0.1"));
        thread = std::thread([this] { http->listen_after_bind(); });
        if (!eventually([this] { return http->is_running(); })) // stop() means nothing to it before
            throw std::runtime_error("the server doesn't start");
    }

    ~Server()
    {
        stopping = true;
        http->stop();
        thread.join();
    }

    void answer(const httplib::Request& request, httplib::Response& response)
    {
        Asked one{.target = request.target, .path = request.path, .query = {}, .headers = {}};
        one.query.insert(request.params.begin(), request.params.end());
        one.headers.insert(request.headers.begin(), request.headers.end());
        Reply reply{.status = 404, .body = "no such thing"};
        {
            const std::scoped_lock lock(mutex);
            asked.push_back(std::move(one));
            if (const auto found = replies.find(request.path); found != replies.end())
                reply = found->second;
        }
        response.status = reply.status;
        if (!reply.location.empty())
            response.set_header("Location", reply.location);
        if (reply.body.empty())
            return; // a provider of nothing would never end
        const std::size_t size = reply.body.size();
        const std::string type = reply.type;
        response.set_content_provider(
            size, type, [this, reply = std::move(reply)](std::size_t offset, std::size_t, httplib::DataSink& sink) {
                return send(reply, offset, sink);
            });
    }

    /// False closes the connection.
    bool send(const Reply& reply, std::size_t offset, httplib::DataSink& sink) const
    {
        if (offset >= reply.cutAfter)
            return false;
        const auto until = std::chrono::steady_clock::now() + reply.pause;
        while (offset > 0 && !stopping && std::chrono::steady_clock::now() < until)
            std::this_thread::sleep_for(std::min(reply.pause, std::chrono::milliseconds(20)));
        if (stopping)
            return false;
        const std::size_t piece = (reply.body.size() + reply.pieces - 1) / reply.pieces;
        const std::size_t count = std::min({piece, reply.body.size() - offset, reply.cutAfter - offset});
        return sink.write(reply.body.data() + offset, count);
    }

    std::unique_ptr<httplib::Server> http;
    std::string address;
    std::atomic<bool> stopping = false;
    mutable std::mutex mutex; // guards the two below
    std::map<std::string, Reply> replies;
    std::vector<Asked> asked;
    std::thread thread;
};

FakeOpenAlex::FakeOpenAlex() : server_(std::make_unique<Server>(std::make_unique<httplib::Server>(), "http")) {}

FakeOpenAlex::FakeOpenAlex(const std::filesystem::path& certificate, const std::filesystem::path& key)
    : server_(std::make_unique<Server>(std::make_unique<httplib::SSLServer>(certificate.c_str(), key.c_str()), "https"))
{
}

FakeOpenAlex::~FakeOpenAlex() = default;

std::string FakeOpenAlex::address(std::string_view path) const
{
    return server_->address + std::string(path);
}

void FakeOpenAlex::reply(const std::string& path, Reply reply)
{
    const std::scoped_lock lock(server_->mutex);
    server_->replies[path] = std::move(reply);
}

std::vector<FakeOpenAlex::Asked> FakeOpenAlex::asked() const
{
    const std::scoped_lock lock(server_->mutex);
    return server_->asked;
}

std::string pageOf(const std::vector<std::string>& works, int total)
{
    std::string page = R"({"meta":{"count":)" + std::to_string(total) + R"(},"results":[)";
    for (const std::string& work : works)
        page += (page.ends_with('[') ? "" : ",") + work;
    return page + "]}";
}

} // namespace veltry::test
