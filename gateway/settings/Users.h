#pragma once

#include "ctl/check/Remarks.h"
#include "gateway/net/Secret.h"

#include <array>
#include <cstdint>
#include <filesystem>
#include <list>
#include <map>
#include <string>
#include <string_view>
#include <vector>

/// Users: who may have streams. Their file has lines NAME:HASH, as mkpasswd and `htpasswd -B` write
/// them: yescrypt ($y$), sha512 ($6$), bcrypt ($2b$, $2y$) of crypt(3). Empty lines and lines that
/// begin with # are passed over.
///
/// A hash is made to take tens of milliseconds, which the gateway's one thread would stand still at
/// every connect of a rover. So what was found right is remembered, as a keyed digest
/// (HMAC-SHA-256, RFC 2104) of name, hash and password; the key is random and of this process. Only
/// who sends the right password meets the short way. A wrong one always takes the time of a hash,
/// also with an unknown name: then that of a user who is chosen by the name. A changed hash makes
/// another digest, so that an old password is forgotten at once.

namespace gateway {

/// What becomes of one who sends a name and a password.
enum class Login { right, wrong, lockedOut };

/// A number of digests, the ones used last.
class ProvenPasswords {
public:
    using Digest = std::array<std::uint8_t, 32>;
    static constexpr std::size_t kMost = 4096;

    explicit ProvenPasswords(std::size_t most = kMost);
    /// Of texts, each with its length, so that none runs into the next.
    Digest digest(std::initializer_list<std::string_view> texts) const;
    /// Whether it is held; then it was used last.
    bool holds(const Digest& digest);
    /// In place of the one that was not used for longest where there are too many.
    void add(const Digest& digest);
    std::size_t size() const { return byDigest_.size(); }

private:
    const std::size_t most_;
    std::array<std::uint8_t, 32> key_{};
    std::list<Digest> order_; // used last in front
    std::map<Digest, std::list<Digest>::iterator> byDigest_;
};

class Users {
public:
    /// Reads the file in place of what was read before, and tells of lines that make no user. A
    /// file that cannot be read is an error, and changes nothing.
    void read(const std::filesystem::path& path, std::vector<ctl::check::Remark>& remarks);

    bool empty() const { return hashes_.empty(); }
    bool contains(std::string_view name) const { return hashes_.find(name) != hashes_.end(); }
    /// The hash of a user; empty where there is none of the name.
    std::string hashOf(std::string_view name) const;
    /// Whether it is the password of the user. Takes the time of a hash where it is not.
    bool matches(std::string_view name, const Secret& password);

private:
    std::map<std::string, std::string, std::less<>> hashes_; // by name
    ProvenPasswords proven_;
};

/// What is wrong with a hash, and what to write; empty where nothing is.
struct HashFault {
    std::string wrong, advice;
    bool none() const { return wrong.empty(); }
};
HashFault faultOfHash(std::string_view hash);

/// Whether a user can have the name: 1 to 100 printable characters without blanks and colons, not #
/// at the beginning.
bool isUserName(std::string_view name);

} // namespace gateway
