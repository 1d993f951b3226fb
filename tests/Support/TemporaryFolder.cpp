#include "Support/TemporaryFolder.h"

#include "Platform/SystemError.h"

#include <cstdlib>
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

} // namespace veltry::test
