/// The short recordings in tests/data/recordings, which README.md there describes.
#pragma once

#include "paths.h"

#include "reference/standard/bits.h"

#include <fstream>
#include <iterator>
#include <string>

inline ref::Bytes recording(const std::string& name) {
    std::ifstream file(std::string(kSourceFolder) + "/tests/data/recordings/" + name,
                       std::ios::binary);
    return ref::Bytes{std::istreambuf_iterator<char>(file), {}};
}
