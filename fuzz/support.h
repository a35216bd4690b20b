#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <span>
#include <string>
#include <string_view>
#include <vector>

/// What the fuzz targets share.

using Bytes = std::span<const std::uint8_t>;

inline std::string_view textOf(Bytes bytes) {
    return {reinterpret_cast<const char*>(bytes.data()), bytes.size()};
}

/// Ends the run as a fault where a promise is not kept.
void require(bool kept, const char* promise);

/// The stream with the check word of every frame set right, so that the contents are what is
/// tried; a frame whose reserved bits are not zero keeps its own. A frame that the end cuts off
/// gets the length that is there. Replies are frames that hold frames.
std::vector<std::uint8_t> withCheckWords(Bytes stream);

/// Hands out the stream in pieces whose sizes follow from its own bytes.
template <class Take> void inPieces(Bytes stream, Take&& take) {
    std::uint32_t state = 1;
    for (const std::uint8_t byte : stream)
        state = state * 16777619U ^ byte;
    for (std::size_t n = 0; !stream.empty(); stream = stream.subspan(n)) {
        state = state * 1664525U + 1013904223U;
        const std::size_t most = state >> 30 == 0 ? 1 : 400; // bytes alone often
        n = std::min(stream.size(), 1 + (state >> 8) % most);
        take(stream.first(n));
    }
}

/// Collects what the process prints to standard output, without a system call.
class Printed {
public:
    Printed();
    ~Printed();
    Printed(const Printed&) = delete;
    Printed& operator=(const Printed&) = delete;
    /// Hands over what was printed since the last call.
    void take(std::string& out);

private:
    std::string text_;
    std::FILE* before_;
};

/// A folder of its own in TMPDIR; it is gone when the process has ended well.
class Folder {
public:
    Folder();
    ~Folder();
    Folder(const Folder&) = delete;
    Folder& operator=(const Folder&) = delete;
    /// Writes a file of the folder anew; its path.
    std::string write(const char* name, std::string_view content) const;
    void remove(const char* name) const;

    /// While it lives, the process works in the folder.
    class Within {
    public:
        explicit Within(const Folder& folder);
        ~Within();
        Within(const Within&) = delete;
        Within& operator=(const Within&) = delete;

    private:
        const Folder& folder_;
    };

private:
    std::string path_;
    int before_; // the folder that the process started in
};
