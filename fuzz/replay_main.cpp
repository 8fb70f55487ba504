// Feeds every file of the folder that its argument names to the fuzz target it is linked with, once.
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *bytes, std::size_t size);

int main(int argc, char **argv) {
    if (argc != 2) {
        std::fprintf(stderr, "usage: replay FOLDER\n");
        return 2;
    }
    int count = 0;
    std::error_code error;
    for (const auto &entry : std::filesystem::directory_iterator(argv[1], error)) {
        std::ifstream file(entry.path(), std::ios::binary);
        const std::vector<char> content{std::istreambuf_iterator<char>(file), {}};
        // A copy of its exact size, so that a sanitizer sees a read past the end.
        const std::vector<std::uint8_t> input(content.begin(), content.end());
        LLVMFuzzerTestOneInput(input.data(), input.size());
        count++;
    }
    std::printf("%d inputs\n", count);
    if (count == 0) {
        std::fprintf(stderr, "%s: no inputs there\n", argv[1]);
        return 1;
    }
    return 0;
}
