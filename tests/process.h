/// What the tests that run whole programs share.
#pragma once

#include "paths.h"

#include <algorithm>
#include <arpa/inet.h>
#include <csignal>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <iterator>
#include <netinet/in.h>
#include <string>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>
#include <utility>
#include <vector>

inline std::string readFile(const std::filesystem::path& path) {
    std::ifstream file(path);
    return {std::istreambuf_iterator<char>(file), {}};
}

inline std::string replaced(std::string text, const std::string& from, const std::string& to) {
    for (std::size_t at = text.find(from); at != std::string::npos; at = text.find(from, at))
        text.replace(at, from.size(), to), at += to.size();
    return text;
}

/// An address of loopback.
inline sockaddr_in loopback(const char* host = "127.0.0.1", int port = 0) {
    sockaddr_in a{};
    a.sin_family = AF_INET;
    a.sin_port = htons(static_cast<std::uint16_t>(port));
    EXPECT_EQ(inet_pton(AF_INET, host, &a.sin_addr), 1) << host;
    return a;
}
/// A TCP socket at a free port of that host, not yet listening.
inline int boundSocket(int& port, const char* host = "127.0.0.1") {
    const int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in a = loopback(host);
    socklen_t n = sizeof a;
    EXPECT_EQ(bind(fd, reinterpret_cast<sockaddr*>(&a), sizeof a), 0);
    EXPECT_EQ(getsockname(fd, reinterpret_cast<sockaddr*>(&a), &n), 0);
    port = ntohs(a.sin_port);
    return fd;
}

/// The words that start a program of the build: where it is for another processor the emulator
/// stands in front, and hands it its name.
inline std::vector<std::string> started(const std::string& program,
                                        const std::vector<std::string>& arguments) {
    const std::string emulator = kEmulator;
    std::vector<std::string> words{program};
    if (!emulator.empty())
        words = {emulator, "-0", std::filesystem::path(program).filename(), program};
    words.insert(words.end(), arguments.begin(), arguments.end());
    return words;
}

/// This process, a child of the test, becomes that program, which does not outlive the test.
[[noreturn]] inline void become(const std::string& program,
                                const std::vector<std::string>& arguments) {
    std::vector<std::string> words = started(program, arguments);
    const std::string file = std::exchange(words[0], std::filesystem::path(words[0]).filename());
    std::vector<char*> argv(words.size() + 1);
    std::transform(words.begin(), words.end(), argv.begin(),
                   [](auto& word) { return word.data(); });
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    execv(file.c_str(), argv.data());
    _exit(127);
}

/// Stands behind "exec" in front of a program that must not outlive the test.
inline constexpr const char* kMortal = "setpriv --pdeathsig KILL ";
/// The program in a line of the shell, which may go on with arguments and redirections.
inline std::string shellWords(const std::string& program) {
    std::string line;
    for (const std::string& word : started(program, {}))
        line += "'" + word + "' ";
    return line;
}

struct Ran {
    int status; // of its exit; -1 where a signal ended it
    std::string output;
};
/// Runs a program of the build through the shell, to its end.
inline Ran runInShell(const std::string& program, const std::string& rest) {
    FILE* const pipe = popen((shellWords(program) + rest).c_str(), "r");
    std::string output;
    for (int c = 0; (c = fgetc(pipe)) != EOF;)
        output += static_cast<char>(c);
    const int status = pclose(pipe);
    return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, output};
}
/// The same in a folder.
inline Ran runInFolder(const std::filesystem::path& folder, const std::string& program,
                       const std::string& rest) {
    const std::filesystem::path before = std::filesystem::current_path();
    std::filesystem::current_path(folder);
    Ran ran = runInShell(program, rest);
    std::filesystem::current_path(before);
    return ran;
}
