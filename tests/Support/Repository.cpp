#include "Support/Repository.h"

#include "Platform/ChildProcess.h"
#include "Platform/Files.h"
#include "Platform/ProcessFacts.h"

#include <cstdlib>
#include <fstream>
#include <stdexcept>

namespace veltry::test {

void isolateGit()
{
    ::setenv("GIT_CONFIG_GLOBAL", "/dev/null", 1);
    ::setenv("GIT_CONFIG_NOSYSTEM", "1", 1);
    for (const char* name :
         {"GIT_DIR", "GIT_WORK_TREE", "GIT_INDEX_FILE", "GIT_AUTHOR_EMAIL", "GIT_COMMITTER_EMAIL", "EMAIL"})
        ::unsetenv(name);
}

Repository::Repository(Options options)
{
    isolateGit();
    git({"init", "--quiet", "--initial-branch=main"});
    if (options.identity) {
        git({"config", "user.name", "Tester"});
        git({"config", "user.email", "tester@example.org"});
    }
    if (options.commit) {
        write("README.md", "An experiment.\n");
        commit("Begin");
    }
}

std::string Repository::git(const std::vector<std::string>& arguments) const
{
    std::vector<std::string> all{"-C", path().string()};
    all.insert(all.end(), arguments.begin(), arguments.end());
    ChildProcess::Output result = ChildProcess::run(
        {.executable = "/usr/bin/git", .arguments = std::move(all), .environment = ProcessFacts::environment()});
    if (result.exitNumber != 0)
        throw std::runtime_error("git " + arguments.front() + ": " + result.error);
    if (result.output.ends_with('\n'))
        result.output.pop_back();
    return std::move(result.output);
}

void Repository::write(std::string_view name, std::string_view contents) const
{
    const std::filesystem::path file = path() / name;
    Files::createFolders(file.parent_path());
    std::ofstream(file, std::ios::binary | std::ios::trunc) << contents;
}

std::string Repository::commit(const std::string& message) const
{
    git({"add", "--all"});
    git({"-c", "user.name=Tester", "-c", "user.email=tester@example.org", "commit", "--quiet", "-m", message});
    return git({"rev-parse", "HEAD"});
}

} // namespace veltry::test
