/// What the tests of files and fatal lines share.
#pragma once

#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <string>
#include <unistd.h>

namespace check {

/// The call ends its process with status 1 and has printed exactly this.
void expectFatal(const auto& call, const std::string& printed) {
    std::fflush(nullptr);
    EXPECT_EXIT((dup2(STDERR_FILENO, STDOUT_FILENO), call()), testing::ExitedWithCode(1),
                testing::Eq(printed));
}

/// What the call prints.
std::string printed(const auto& call) {
    testing::internal::CaptureStdout();
    call();
    return testing::internal::GetCapturedStdout();
}

/// A directory of its own.
struct Scratch {
    Scratch() = default;
    Scratch(const Scratch&) = delete;
    Scratch& operator=(const Scratch&) = delete;
    ~Scratch() { std::filesystem::remove_all(path); }
    std::string write(const std::string& name, const std::string& content) const {
        std::ofstream(path + name, std::ios::binary) << content;
        return path + name;
    }
    std::string path = std::string(mkdtemp((testing::TempDir() + "kestrune-XXXXXX").data())) + "/";
};

} // namespace check
