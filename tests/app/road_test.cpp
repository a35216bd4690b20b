#include "configured.h"

#include <cstdlib>
#include <new>

namespace {
bool counting = false;
int allocations = 0;
} // namespace

[[gnu::noinline]] void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
    if (counting)
        ++allocations;
    return std::malloc(size ? size : 1);
}
[[gnu::noinline]] void* operator new(std::size_t size) {
    if (void* const p = operator new(size, std::nothrow))
        return p;
    throw std::bad_alloc();
}
[[gnu::noinline]] void operator delete(void* p) noexcept {
    std::free(p);
}
[[gnu::noinline]] void operator delete(void* p, std::size_t) noexcept {
    std::free(p);
}

TEST(Road, AllocatesNothingFromBytesToReply) {
    for (const bool complete : {false, true}) {
        const ref::GpsTime now = kNow;
        const FixedClock clock(now);
        Configured c; // without a socket: replies are built and dropped
        c.record.answering = {complete, complete, {}};
        c.service.prepareSession();
        c.service.intake.onrtcm = [&](std::uint32_t status, const std::uint8_t* frame,
                                      std::int32_t length) {
            c.service.onMessage(status, frame, length);
        };
        ref::Sky sky(kSite);
        ref::Bytes stream;
        for (const ref::Bytes& f : sky.ephemerisFrames(now))
            stream.insert(stream.end(), f.begin(), f.end());
        for (int epoch = 0; epoch < 4; ++epoch)
            for (const ref::Bytes& f : sky.epochFrames(now + 1.0 * epoch, 4 + epoch))
                stream.insert(stream.end(), f.begin(), f.end());
        testing::internal::CaptureStdout();
        c.read(stream);
        allocations = 0;
        counting = true;
        c.read(stream);
        counting = false;
        const std::string printed = testing::internal::GetCapturedStdout();
        EXPECT_TRUE(contains(printed, "***INFO: Get a return buff"));
        EXPECT_EQ(allocations, 0) << complete;
    }
}
