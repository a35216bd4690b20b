#pragma once

#include <string>

/// What ends a process with a line ends only the call in a target that has fuzz/fatal.cpp: the
/// linker puts its function in the place of `fatal`.

struct FatalLine {
    std::string text;
};

/// The line that the call would have ended the process with; empty where it came back.
template <class Call> std::string fatalLineOf(const Call& call) {
    try {
        call();
    } catch (const FatalLine& line) {
        return line.text.empty() ? "?" : line.text;
    }
    return {};
}
