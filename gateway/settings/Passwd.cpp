#include "gateway/settings/Passwd.h"

#include "gateway/net/Characters.h"
#include "gateway/net/PrivateFile.h"
#include "gateway/settings/Users.h"

#include <algorithm>
#include <cerrno>
#include <crypt.h>
#include <fstream>
#include <iterator>
#include <memory>
#include <openssl/crypto.h>
#include <optional>
#include <ostream>
#include <stdexcept>
#include <string_view>
#include <system_error>
#include <termios.h>
#include <unistd.h>

namespace gateway {

namespace {

/// A terminal that shows nothing and hands over each key; as it was when this ends.
class Silent {
public:
    explicit Silent(int terminal) : terminal_(terminal) {
        good_ = tcgetattr(terminal_, &before_) == 0;
        termios silent = before_;
        silent.c_lflag &= ~static_cast<tcflag_t>(ECHO | ICANON | ISIG);
        silent.c_iflag |= ICRNL;
        silent.c_cc[VMIN] = 1;
        silent.c_cc[VTIME] = 0;
        if (good_)
            good_ = tcsetattr(terminal_, TCSAFLUSH, &silent) == 0;
        if (!good_)
            throw std::runtime_error("the terminal cannot be told to show nothing");
    }
    ~Silent() { tcsetattr(terminal_, TCSAFLUSH, &before_); }
    Silent(const Silent&) = delete;
    Silent& operator=(const Silent&) = delete;

private:
    int terminal_;
    bool good_ = false;
    termios before_{};
};

constexpr std::size_t kLongestPassword = CRYPT_MAX_PASSPHRASE_SIZE - 1;

/// The keys up to the end of the line; nothing where somebody gave up.
std::optional<std::string> readKeys(int terminal) {
    constexpr char kInterrupt = 3, kEnd = 4, kBackspace = 8, kClear = 21, kDelete = 127;
    std::string line;
    for (char key = 0;;) {
        const ssize_t n = ::read(terminal, &key, 1);
        if (n < 0 && errno == EINTR)
            continue;
        if (n <= 0 || key == kInterrupt || key == kEnd)
            return std::nullopt;
        if (key == '\n')
            return line;
        if (key == kClear)
            line.clear();
        else if (key != kBackspace && key != kDelete)
            line += key;
        else if (!line.empty())
            line.pop_back();
        if (line.size() > kLongestPassword + 1)
            line.pop_back(); // told as too long
    }
}

std::string readLine(int input) {
    std::string line;
    for (char c = 0; line.size() <= kLongestPassword + 1;) { // one more: a carriage return
        const ssize_t n = ::read(input, &c, 1);
        if (n < 0 && errno == EINTR)
            continue;
        if (n < 0)
            throw std::system_error(errno, std::generic_category(), "standard input");
        if (n == 0 || c == '\n')
            break;
        line += c;
    }
    if (line.ends_with('\r'))
        line.pop_back();
    return line;
}

std::string asked(int terminal, const std::string& prompt, std::ostream& out) {
    out << prompt << ": " << std::flush;
    const auto keys = readKeys(terminal);
    out << std::endl;
    if (!keys)
        throw std::runtime_error("nothing was changed");
    return *keys;
}

Secret readPassword(int input, const std::string& name, std::ostream& out) {
    std::string password;
    if (isatty(input)) {
        const Silent silent(input);
        password = asked(input, "Password of " + name, out);
        if (asked(input, "Once more", out) != password)
            throw std::runtime_error("the two passwords differ; nothing was changed");
    } else {
        password = readLine(input);
    }
    if (password.empty())
        throw std::runtime_error("the password is empty; nothing was changed");
    if (password.size() > kLongestPassword)
        throw std::runtime_error("the password is longer than " + std::to_string(kLongestPassword) +
                                 " bytes; nothing was changed");
    if (std::any_of(password.begin(), password.end(), isControl))
        throw std::runtime_error("the password holds a control character; nothing was changed");
    return Secret(std::move(password));
}

/// The file with the line of the user in it.
std::string withUser(const std::string& content, const std::string& name, const std::string& line) {
    std::string out;
    bool written = false;
    for (std::size_t begin = 0; begin < content.size();) {
        const std::size_t end = std::min(content.find('\n', begin), content.size() - 1) + 1;
        const std::string_view old = std::string_view(content).substr(begin, end - begin);
        begin = end;
        if (!old.starts_with(name + ":")) {
            out += old;
        } else if (!written) { // lines of the same name that follow are not used: they go
            out += line + "\n";
            written = true;
        }
    }
    if (!written)
        out += (out.empty() || out.ends_with('\n') ? "" : "\n") + line + "\n";
    return out;
}

} // namespace

std::string hashOf(const Secret& password) {
    char setting[CRYPT_GENSALT_OUTPUT_SIZE];
    const auto data = std::make_unique<crypt_data>();
    const char* hash = nullptr;
    // Cost 0 is the library's own; it takes its random bytes from the system.
    if (crypt_gensalt_rn("$y$", 0, nullptr, 0, setting, sizeof setting))
        hash = crypt_rn(password.reveal().c_str(), setting, data.get(), sizeof *data);
    std::string out = hash ? hash : "";
    OPENSSL_cleanse(data.get(), sizeof *data);
    if (out.empty())
        throw std::runtime_error("the library computes no yescrypt hash");
    return out;
}

void writeUser(const std::filesystem::path& file, const std::string& name,
               const std::string& hash) {
    std::string content;
    std::error_code error;
    if (std::filesystem::exists(file, error)) {
        std::ifstream in(file, std::ios::binary);
        if (!std::filesystem::is_regular_file(file, error) || !in)
            throw std::runtime_error(file.string() + " cannot be read");
        content.assign(std::istreambuf_iterator<char>(in), {});
    }
    try {
        writePrivateFile(file, withUser(content, name, name + ":" + hash));
    } catch (const std::system_error& fault) {
        throw std::runtime_error(file.string() + ": " + fault.code().message());
    }
}

int runPasswd(const std::filesystem::path& file, const std::string& name, int input,
              std::ostream& out) {
    if (!isUserName(name)) {
        out << "kestrune-gateway passwd: a user has a name of 1 to 100 characters, without blanks "
               "and colons, not # at the beginning\n";
        return 2;
    }
    try {
        writeUser(file, name, hashOf(readPassword(input, name, out)));
    } catch (const std::runtime_error& fault) {
        out << "kestrune-gateway passwd: " << fault.what() << '\n';
        return 1;
    }
    return 0;
}

} // namespace gateway
