#include "fuzz/support.h"

#include "base/bits.h"
#include "rtcm/layouts/ReplyFrame.h"

#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <unistd.h>

namespace {

constexpr std::uint8_t kMessageStart = 0xD3;
using Span = std::span<std::uint8_t>;

void setRight(Span stream, bool replies);

/// A message at the front of the bytes; its length, 0 where there is none.
std::size_t setMessageRight(Span bytes) {
    constexpr std::size_t around = 6; // header and check word
    if (bytes.size() < around || bytes[0] != kMessageStart)
        return 0;
    std::size_t length = getbitu(bytes, 14, 10);
    if (length + around > bytes.size())
        setbitu(bytes, 14, 10, static_cast<std::uint32_t>(length = bytes.size() - around));
    if (getbitu(bytes, 8, 6) == 0)
        setbitu(bytes, 8 * (length + 3), 24, crc24q(bytes.first(length + 3)));
    return length + around;
}

/// The same for a reply and the messages in it.
std::size_t setReplyRight(Span bytes) {
    ReplyHead head;
    BitReader in(bytes);
    layoutReplyHead(in, head);
    if (!head.begins() || head.frameBytes() > bytes.size())
        return 0;
    const std::size_t beforeCheck = head.frameBytes() - kReplyCheckBytes;
    setRight(bytes.subspan(kReplyHeadBytes, beforeCheck - kReplyHeadBytes), false);
    setbitu(bytes, 8 * beforeCheck, 32, crc24q(bytes.first(beforeCheck)));
    return head.frameBytes();
}

void setRight(Span stream, bool replies) {
    while (!stream.empty()) {
        std::size_t length = setMessageRight(stream);
        if (length == 0 && replies)
            length = setReplyRight(stream);
        stream = stream.subspan(length == 0 ? 1 : length);
    }
}

} // namespace

void require(bool kept, const char* promise) {
    if (kept)
        return;
    std::fprintf(stderr, "not kept: %s\n", promise);
    std::abort();
}

std::vector<std::uint8_t> withCheckWords(Bytes stream) {
    std::vector<std::uint8_t> out(stream.begin(), stream.end());
    setRight(out, true);
    return out;
}

Printed::Printed() : before_(stdout) {
    cookie_io_functions_t functions{};
    functions.write = [](void* text, const char* bytes, std::size_t n) {
        static_cast<std::string*>(text)->append(bytes, n);
        return static_cast<ssize_t>(n);
    };
    stdout = fopencookie(&text_, "w", functions);
    require(stdout != nullptr, "standard output is collected");
}

Printed::~Printed() {
    std::fclose(stdout);
    stdout = before_;
}

void Printed::take(std::string& out) {
    std::fflush(stdout);
    out.clear();
    out.swap(text_);
}

Folder::Folder()
    : path_(std::filesystem::temp_directory_path() / "kestrune-fuzz-XXXXXX"),
      before_(open(".", O_PATH | O_DIRECTORY | O_CLOEXEC)) {
    require(before_ >= 0 && mkdtemp(path_.data()), "a folder is made");
}

Folder::~Folder() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
    close(before_);
}

std::string Folder::write(const char* name, std::string_view content) const {
    std::string path = path_ + "/" + name;
    const int file = open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
    require(file >= 0 && ::write(file, content.data(), content.size()) ==
                             static_cast<ssize_t>(content.size()),
            "a file is written");
    close(file);
    return path;
}

void Folder::remove(const char* name) const {
    unlink((path_ + "/" + name).c_str());
}

Folder::Within::Within(const Folder& folder) : folder_(folder) {
    require(chdir(folder.path_.c_str()) == 0, "the folder is there");
}

Folder::Within::~Within() {
    require(fchdir(folder_.before_) == 0, "the folder before is there");
}
