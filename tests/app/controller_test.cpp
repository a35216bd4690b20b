#include "app/Controller.h"
#include "common/check.h"
#include "session.h"

namespace {

TEST(Teardown, GivesBackEveryListOfTheRecord) {
    configure();
    finish();
    const auto freed = [](const auto& list) { return list.capacity() == 0; };
    EXPECT_TRUE(freed(DLY.satelliteNames) && freed(DLY.satellites) && freed(DLY.stations) &&
                freed(DLY.stationEpochs) && freed(DLY.requests));
    EXPECT_EQ(DLY.satelliteIndex[5], -1);
    finish(); // nothing is freed twice
}

TEST(DiagnosticFile, GetsALineForEachValue) {
    const check::Scratch scratch;
    const std::filesystem::path before = std::filesystem::current_path();
    std::filesystem::current_path(scratch.path);
    const auto open = [] {
        const std::filesystem::directory_iterator descriptors("/proc/self/fd");
        return std::distance(begin(descriptors), end(descriptors));
    };
    const auto opened = open();
    for (const int value : {7, -2147483647, 0})
        Write(value);
    EXPECT_EQ(open(), opened); // and the file is closed again
    std::ifstream log("log");
    EXPECT_EQ(std::string(std::istreambuf_iterator<char>(log), {}), "7\n-2147483647\n0\n");

    std::filesystem::remove("log");
    std::filesystem::create_directory("log");
    testing::internal::CaptureStdout();
    Write(1);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "file open fail\n");
    std::filesystem::current_path(before);
}

} // namespace
