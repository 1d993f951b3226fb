#pragma once

#include "Support/TemporaryFolder.h"

#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

namespace veltry::test {

/// Makes git in this process and its children blind to the configuration and the repository of whoever runs the tests.
void isolateGit();

/// A real repository in a folder of its own, on the branch `main`.
class Repository {
public:
    struct Options {
        bool identity = true; ///< user.name and user.email stand in its configuration
        bool commit = true;   ///< begins with one commit, which holds `README.md`
    };

    Repository() : Repository(Options{}) {}

    explicit Repository(Options options);

    [[nodiscard]] const std::filesystem::path& path() const { return folder_.path(); }

    [[nodiscard]] std::filesystem::path operator/(std::string_view name) const { return folder_ / name; }

    /// Runs git in the repository and returns its output without the last line feed. Throws std::runtime_error with
    /// what git said if it fails.
    std::string git(const std::vector<std::string>& arguments) const;

    /// Writes a file, with the folders that it needs; `name` is relative to the repository.
    void write(std::string_view name, std::string_view contents) const;
    /// Commits everything and returns the commit's id.
    std::string commit(const std::string& message = "A change") const;

private:
    TemporaryFolder folder_;
};

} // namespace veltry::test
