#include "Support/TemporaryFolder.h"

#include "Platform/SystemError.h"

#include <cstdlib>
#include <iterator>
#include <string>

namespace veltry::test {

TemporaryFolder::TemporaryFolder()
{
    std::string name = std::filesystem::temp_directory_path() / "veltry-test-XXXXXX";
    if (!::mkdtemp(name.data()))
        throw SystemError("could not make a temporary folder");
    path_ = std::filesystem::canonical(name);
}

TemporaryFolder::~TemporaryFolder()
{
    std::error_code ignored; // a child that is still dying may hold something for a moment
    std::filesystem::remove_all(path_, ignored);
}

std::ptrdiff_t entryCount(const std::filesystem::path& folder)
{
    return std::distance(std::filesystem::directory_iterator(folder), {});
}

mode_t modeOf(const std::filesystem::path& file)
{
    return static_cast<mode_t>(std::filesystem::status(file).permissions());
}

} // namespace veltry::test
