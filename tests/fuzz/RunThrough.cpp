// Runs a fuzzer's function through the files of its corpus, for builds without a fuzzer.
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

namespace {

// As long as the file and no longer, so that a sanitizer sees what lies behind. The file is closed
// by the time it is tried.
std::vector<char> BytesOf(const std::filesystem::path& path) {
    std::ifstream file(path, std::ios::binary);
    return std::vector<char>(std::istreambuf_iterator<char>(file), {});
}

}  // namespace

int main(int count, char** arguments) {
    std::size_t files = 0;
    for (int index = 1; index < count; ++index) {
        for (const auto& entry : std::filesystem::directory_iterator(arguments[index])) {
            const std::vector<char> bytes = BytesOf(entry.path());
            LLVMFuzzerTestOneInput(reinterpret_cast<const std::uint8_t*>(bytes.data()),
                                   bytes.size());
            ++files;
        }
    }
    std::printf("%zu files\n", files);
    return files > 0 ? 0 : 1;
}
