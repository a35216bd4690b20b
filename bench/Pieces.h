#pragma once

#include <cstddef>
#include <functional>
#include <string>
#include <vector>

/// Pieces: parts of the road of an epoch, to be counted (count.cpp) and timed (times.cpp). What
/// they work on comes from the reference sky or from a file.

/// A piece that is ready to run.
struct Work {
    std::size_t bytes; // that one run takes or makes; 0 where none are meant
    std::function<void()> run;
};

struct Piece {
    std::string name;
    std::function<Work()> prepare;
};

/// All of them.
std::vector<Piece> pieces();
/// The decoding of a file with a stream.
Work decodingOf(const std::string& path);
