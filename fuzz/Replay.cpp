// Stands in for libFuzzer where a build has none: gives each file of the given folders to the target, once.

#include "Platform/Files.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <exception>
#include <filesystem>
#include <string>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

namespace {

std::vector<std::filesystem::path> inputs(int count, char** folders)
{
    std::vector<std::filesystem::path> files;
    for (int index = 1; index < count; ++index)
        for (const auto& entry : std::filesystem::directory_iterator(folders[index]))
            if (entry.is_regular_file())
                files.push_back(entry.path());
    std::ranges::sort(files);
    return files;
}

} // namespace

int main(int count, char** arguments)
try {
    const std::vector<std::filesystem::path> files = inputs(count, arguments);
    for (const std::filesystem::path& file : files) {
        std::printf("%s\n", file.c_str());
        std::fflush(stdout); // so that the last line names the culprit
        const std::string bytes = veltry::Files::read(file);
        LLVMFuzzerTestOneInput(reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size());
    }
    return files.empty() ? 1 : 0;
} catch (const std::exception& error) {
    std::fprintf(stderr, "%s\n", error.what());
    return 1;
}
