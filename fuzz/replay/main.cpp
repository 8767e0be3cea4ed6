// Runs a fuzz target over its stored inputs, once each: replay_NAME FOLDER. Linked with each
// target in the ordinary test build, so that what fuzzing found stays found.

#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

int main(int argc, char** argv) {
    if (argc != 2) {
        std::fprintf(stderr, "usage: %s FOLDER\n", argv[0]);
        return 2;
    }
    unsigned inputs = 0;
    for (const auto& entry : std::filesystem::directory_iterator(argv[1])) {
        // Named before it runs: what ends the program is the last one named.
        std::fprintf(stderr, "%s\n", entry.path().filename().c_str());
        std::ifstream file(entry.path(), std::ios::binary);
        const std::vector<char> bytes(std::istreambuf_iterator<char>(file), {});
        LLVMFuzzerTestOneInput(reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size());
        ++inputs;
    }
    std::fprintf(stderr, "%u inputs\n", inputs);
    return inputs == 0;
}
