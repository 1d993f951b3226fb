#pragma once

#include <chrono>
#include <cstddef>
#include <filesystem>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace veltry::test {

/// A real HTTP server on loopback that plays the literature service and the sites of the papers. What it isn't told to
/// answer is a 404. It takes the proxies that the environment names out of the way.
class FakeOpenAlex {
public:
    struct Reply {
        int status = 200;
        std::string body{};
        std::string type = "application/json";
        std::string location{};                   ///< of a redirect
        std::size_t cutAfter = std::string::npos; ///< bytes of the body, behind which the connection is closed
        std::size_t pieces = 1;                   ///< in which the body goes
        std::chrono::milliseconds pause{0};       ///< before each piece behind the first
    };

    struct Asked {
        std::string target; ///< as it stood in the request line
        std::string path;
        std::map<std::string, std::string> query; ///< decoded
        std::map<std::string, std::string> headers;
    };

    FakeOpenAlex();
    /// Speaks TLS with this certificate and key, as PEM files.
    FakeOpenAlex(const std::filesystem::path& certificate, const std::filesystem::path& key);
    FakeOpenAlex(const FakeOpenAlex&) = delete;
    FakeOpenAlex& operator=(const FakeOpenAlex&) = delete;
    ~FakeOpenAlex();

    /// Like "http://127.0.0.1:4711"; an address of it with that path.
    [[nodiscard]] std::string address(std::string_view path = "") const;
    /// From now on; for a path, whatever the query is.
    void reply(const std::string& path, Reply reply);

    /// All requests so far.
    [[nodiscard]] std::vector<Asked> asked() const;

private:
    struct Server;
    std::unique_ptr<Server> server_;
};

/// A page of the search, of these works as JSON.
[[nodiscard]] std::string pageOf(const std::vector<std::string>& works, int total);

} // namespace veltry::test
