#include "gateway/settings/Users.h"

#include "base/ComText.h"
#include "base/LineReader.h"
#include "ctl/check/Advice.h"
#include "gateway/net/Characters.h"

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <crypt.h>
#include <cstring>
#include <memory>
#include <openssl/crypto.h>
#include <openssl/evp.h>
#include <openssl/hmac.h>
#include <openssl/rand.h>
#include <optional>
#include <stdexcept>
#include <system_error>

namespace gateway {

namespace {

constexpr std::size_t kLongestUserName = 100;
constexpr std::size_t kLargestUserFile = std::size_t{64} << 20;

struct HashKind {
    std::string_view prefix;
    std::size_t rest; // characters behind the last '$'
};
constexpr HashKind kHashKinds[] = {{"$y$", 43}, {"$6$", 86}, {"$2b$", 53}, {"$2y$", 53}};

constexpr unsigned kMostRounds = 1'000'000; // of sha512: half a second
constexpr unsigned kMostBcryptCost = 14;    // one second

template <class Number> std::optional<Number> leadingNumber(std::string_view text) {
    Number out{};
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), out);
    return error == std::errc{} ? std::optional(out) : std::nullopt;
}

/// Rounds of sha512, the cost of bcrypt; of others, and of sha512 where none are written, 0.
unsigned costOf(std::string_view hash) {
    constexpr std::string_view rounds = "$6$rounds=";
    const std::size_t at = hash.starts_with(rounds) ? rounds.size() : 4;
    const bool has = hash.starts_with(rounds) || hash.starts_with("$2");
    return has ? leadingNumber<unsigned>(hash.substr(at)).value_or(~0U) : 0;
}

/// Whether a hash takes so long that it would hold up everybody.
bool tooSlow(std::string_view hash) {
    return costOf(hash) > (hash.starts_with("$2") ? kMostBcryptCost : kMostRounds);
}

/// Of other kinds that are in use, its name; what else begins with '$' may be a password.
std::string kindOf(std::string_view hash) {
    constexpr std::string_view kinds[] = {"$1$", "$5$", "$2a$", "$2x$", "$7$", "$gy$", "$apr1$"};
    const auto kind = std::find_if(std::begin(kinds), std::end(kinds),
                                   [&](std::string_view k) { return hash.starts_with(k); });
    return kind == std::end(kinds) ? "" : " " + std::string(*kind);
}

/// Whether the password gives the hash.
bool gives(const Secret& password, const std::string& hash) {
    const std::string& text = password.reveal();
    if (text.find('\0') != std::string::npos) // would end it
        return false;
    const auto data = std::make_unique<crypt_data>();
    const char* const out = crypt_rn(text.c_str(), hash.c_str(), data.get(), sizeof *data);
    const bool same =
        out && std::strlen(out) == hash.size() && CRYPTO_memcmp(out, hash.data(), hash.size()) == 0;
    OPENSSL_cleanse(data.get(), sizeof *data);
    return same;
}

} // namespace

ProvenPasswords::ProvenPasswords(std::size_t most) : most_(most) {
    if (RAND_bytes(key_.data(), static_cast<int>(key_.size())) != 1)
        throw std::runtime_error("the system gives no random numbers");
}

ProvenPasswords::Digest
ProvenPasswords::digest(std::initializer_list<std::string_view> texts) const {
    std::string all;
    for (const std::string_view text : texts)
        all += std::to_string(text.size()) + ":" + std::string(text);
    Digest out{};
    unsigned length = 0;
    if (!HMAC(EVP_sha256(), key_.data(), static_cast<int>(key_.size()),
              reinterpret_cast<const unsigned char*>(all.data()), all.size(), out.data(), &length))
        throw std::runtime_error("the library computes no digest");
    OPENSSL_cleanse(all.data(), all.size());
    return out;
}

bool ProvenPasswords::holds(const Digest& digest) {
    const auto at = byDigest_.find(digest);
    if (at == byDigest_.end())
        return false;
    order_.splice(order_.begin(), order_, at->second);
    return true;
}

void ProvenPasswords::add(const Digest& digest) {
    if (holds(digest))
        return;
    order_.push_front(digest);
    byDigest_[digest] = order_.begin();
    if (byDigest_.size() > most_) {
        byDigest_.erase(order_.back());
        order_.pop_back();
    }
}

bool isUserName(std::string_view name) {
    return !name.empty() && name.size() <= kLongestUserName && name.front() != '#' &&
           std::none_of(name.begin(), name.end(),
                        [](char c) { return isControl(c) || c == ' ' || c == ':'; });
}

HashFault faultOfHash(std::string_view hash) {
    const auto kind = std::find_if(std::begin(kHashKinds), std::end(kHashKinds),
                                   [&](const HashKind& k) { return hash.starts_with(k.prefix); });
    if (hash.empty())
        return {"the hash is missing", "run kestrune-gateway passwd FILE NAME"};
    if (hash.front() != '$')
        return {"what follows the name is no hash",
                "the file takes no passwords: run kestrune-gateway passwd FILE NAME"};
    if (kind == std::end(kHashKinds))
        return {"the hash" + kindOf(hash) +
                    " is none of yescrypt ($y$), sha512 ($6$) and bcrypt ($2b$, $2y$)",
                "write it with kestrune-gateway passwd, mkpasswd or htpasswd -B"};
    if (hash.size() - hash.rfind('$') - 1 != kind->rest ||
        crypt_checksalt(std::string(hash).c_str()) != CRYPT_SALT_OK)
        return {"the hash is not whole", "write it again: kestrune-gateway passwd FILE NAME"};
    if (tooSlow(hash))
        return {
            text("the hash has a cost of %u: it takes so long that it would hold up all streams",
                 costOf(hash)),
            text("take at most %u rounds of sha512, a cost of bcrypt of at most %u", kMostRounds,
                 kMostBcryptCost)};
    return {};
}

void Users::read(const std::filesystem::path& path, std::vector<ctl::check::Remark>& remarks) {
    const std::string file = path.string();
    std::error_code error;
    const bool regular =
        std::filesystem::is_regular_file(path, error); // a pipe would be waited for
    errno = 0;
    LineReader lines(regular ? file : "", kLargestUserFile);
    if (!lines.isOpen()) {
        remarks.push_back({Severity::fatal,
                           file,
                           0,
                           {},
                           "cannot be read",
                           error ? ctl::check::reasonWith(file, error.message())
                                 : std::string(regular ? std::strerror(errno) : "is no file")});
        return;
    }
    std::map<std::string, std::string, std::less<>> found;
    for (std::string_view line; lines.next(line);) {
        const auto warn = [&](std::string wrong, std::string advice) {
            if (remarks.size() < 1000)
                remarks.push_back({Severity::warning,
                                   file,
                                   lines.lineNumber(),
                                   {},
                                   std::move(wrong),
                                   std::move(advice)});
        };
        line = line.substr(0, line.find_last_not_of(kWhiteSpace) + 1);
        if (line.empty() || line.front() == '#')
            continue;
        const std::size_t colon = std::min(line.find(':'), line.size());
        const std::string name(line.substr(0, colon));
        const std::string hash(line.substr(std::min(colon + 1, line.size())));
        if (colon == line.size() || lines.cut())
            warn("is no line NAME:HASH", "run kestrune-gateway passwd FILE NAME");
        else if (!isUserName(name))
            warn(name + " is no name of a user",
                 "write 1 to 100 characters without blanks, colons and control characters");
        else if (const HashFault fault = faultOfHash(hash); !fault.none())
            warn(name + ": " + fault.wrong, fault.advice);
        else if (!found.emplace(name, hash).second)
            warn(name + " stands a second time", "the first line is used: remove this one");
    }
    hashes_ = std::move(found);
}

std::string Users::hashOf(std::string_view name) const {
    const auto user = hashes_.find(name);
    return user == hashes_.end() ? std::string() : user->second;
}

bool Users::matches(std::string_view name, const Secret& password) {
    if (hashes_.empty())
        return false;
    const auto user = hashes_.find(name);
    if (user == hashes_.end()) {
        // Always the same user for a name, else repeated guesses would show that it is unknown.
        const ProvenPasswords::Digest digest = proven_.digest({name});
        std::uint64_t number = 0;
        std::memcpy(&number, digest.data(), sizeof number);
        const auto other =
            std::next(hashes_.begin(), static_cast<std::ptrdiff_t>(number % hashes_.size()));
        static_cast<void>(gives(password, other->second));
        return false;
    }
    const ProvenPasswords::Digest digest = proven_.digest({name, user->second, password.reveal()});
    if (proven_.holds(digest))
        return true;
    if (!gives(password, user->second))
        return false;
    proven_.add(digest);
    return true;
}

} // namespace gateway
