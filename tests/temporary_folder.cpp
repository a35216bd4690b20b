#include <cstdlib>
#include <filesystem>
#include <gtest/gtest.h>
#include <string>
#include <system_error>

namespace {

/// The temporary folder of all tests of a run: one of its own, which goes away with all that they
/// leave in it, also where they fail. Children of the tests inherit it.
class OwnTemporaryFolder : public testing::Environment {
public:
    void SetUp() override {
        path_ = testing::TempDir() + "kestrune-tests-XXXXXX";
        ASSERT_TRUE(mkdtemp(path_.data())) << path_;
        std::filesystem::permissions(path_, std::filesystem::perms{0755}); // as /tmp: all may enter
        unsetenv("TEST_TMPDIR");
        setenv("TMPDIR", path_.c_str(), 1);
        ASSERT_EQ(testing::TempDir(), path_ + "/");
    }
    void TearDown() override {
        std::error_code error;
        std::filesystem::remove_all(path_, error);
        EXPECT_FALSE(error) << path_ << ": " << error.message();
    }

private:
    std::string path_;
};

[[maybe_unused]] const testing::Environment* const folder =
    testing::AddGlobalTestEnvironment(new OwnTemporaryFolder);

} // namespace
