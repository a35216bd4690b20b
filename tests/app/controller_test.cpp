#include "app/Surface.h"
#include "check.h"
#include "configured.h"

TEST(Teardown, GivesBackEveryListOfTheRecord) {
    Configured c;
    c.service.finish();
    const auto freed = [](const auto& list) { return list.capacity() == 0; };
    EXPECT_TRUE(freed(c.record.satelliteNames) && freed(c.record.satellites) &&
                freed(c.record.stations) && freed(c.record.stationEpochs) &&
                freed(c.record.requests) && c.record.satelliteIndex[5] == -1);
}

TEST(DiagnosticFile, GetsALineForEachValue) {
    const check::Scratch scratch;
    const auto before = std::filesystem::current_path();
    std::filesystem::current_path(scratch.path);
    const int lowest = dup(0); // the next free descriptor
    close(lowest);
    Write(7);
    Write(-2147483647);
    EXPECT_EQ(dup(0), lowest); // the file is closed again
    close(lowest);
    std::ifstream log("log");
    EXPECT_EQ(std::string(std::istreambuf_iterator<char>(log), {}), "7\n-2147483647\n");
    std::filesystem::remove("log");
    std::filesystem::create_directory("log");
    testing::internal::CaptureStdout();
    Write(1);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "file open fail\n");
    std::filesystem::current_path(before);
}
