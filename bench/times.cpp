#include "bench/Pieces.h"

#include <benchmark/benchmark.h>
#include <cstdint>
#include <cstdio>
#include <exception>

// Times the pieces; the options are those of Google Benchmark.

int main(int argc, char** argv) {
    try {
        for (const Piece& piece : pieces())
            benchmark::RegisterBenchmark(
                piece.name.c_str(), [work = piece.prepare()](benchmark::State& state) {
                    for ([[maybe_unused]] const auto _ : state)
                        work.run();
                    if (work.bytes > 0)
                        state.SetBytesProcessed(state.iterations() *
                                                static_cast<std::int64_t>(work.bytes));
                });
    } catch (const std::exception& e) {
        std::fprintf(stderr, "%s\n", e.what());
        return 1;
    }
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv))
        return 1;
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
}
