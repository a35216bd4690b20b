#include "fuzz/road.h"

// The road with the specified answer.

namespace {

std::unique_ptr<road::Road> specified;

} // namespace

extern "C" int LLVMFuzzerInitialize(int* /*argc*/, char*** /*argv*/) {
    specified = std::make_unique<road::Road>(Answering{});
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size > 0)
        specified->run(withCheckWords({data, size}));
    return 0;
}
