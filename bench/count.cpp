#include "bench/Pieces.h"

#include <algorithm>
#include <charconv>
#include <cstdio>
#include <exception>
#include <string_view>

// Runs one piece so many times, for valgrind to count: bench_count PIECE|FILE TIMES. Prints what
// one run is counted by: its bytes, or 1.

namespace {

Work workOf(const std::string& name) {
    for (const Piece& piece : pieces())
        if (piece.name == name)
            return piece.prepare();
    return decodingOf(name);
}

int run(const std::string& name, std::string_view times) {
    int count = 0;
    std::from_chars(times.data(), times.data() + times.size(), count);
    const Work work = workOf(name);
    for (int i = 0; i < count; ++i)
        work.run();
    std::printf("%zu\n", std::max<std::size_t>(work.bytes, 1));
    return 0;
}

} // namespace

int main(int argc, char** argv) {
    try {
        if (argc == 3)
            return run(argv[1], argv[2]);
        std::fprintf(stderr, "Usage: %s PIECE|FILE TIMES\n", argv[0]);
    } catch (const std::exception& e) {
        std::fprintf(stderr, "%s\n", e.what());
    }
    return 1;
}
