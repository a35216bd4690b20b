#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

extern "C" int LLVMFuzzerInitialize(int* argc, char*** argv);
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);
/// Not every target has something to begin with.
extern "C" __attribute__((weak)) int LLVMFuzzerInitialize(int* /*argc*/, char*** /*argv*/) {
    return 0;
}

/// Without libFuzzer a target runs the inputs that it is given: files, or all files of a folder.
/// Options are libFuzzer's, and ignored.
int main(int argc, char** argv) {
    namespace fs = std::filesystem;
    LLVMFuzzerInitialize(&argc, &argv);
    std::size_t inputs = 0;
    const auto run = [&inputs](const fs::path& file) {
        std::ifstream in(file, std::ios::binary);
        const std::vector<char> bytes{std::istreambuf_iterator<char>(in), {}};
        LLVMFuzzerTestOneInput(reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size());
        ++inputs;
    };
    for (int i = 1; i < argc; ++i) {
        const fs::path path = argv[i];
        if (fs::is_regular_file(path))
            run(path);
        else if (fs::is_directory(path))
            for (const fs::directory_entry& entry : fs::directory_iterator(path))
                run(entry.path());
    }
    std::fprintf(stderr, "%zu inputs\n", inputs);
    return inputs > 0 ? 0 : 1;
}
