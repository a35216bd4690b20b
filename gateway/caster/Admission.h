#pragma once

#include "gateway/net/Within.h"
#include "gateway/settings/Settings.h"

#include <deque>
#include <map>
#include <optional>
#include <string>

/// Admission: how many may come, from where and as whom.

namespace gateway {

class Admission {
public:
    /// Why a connection from an address is refused now; nothing: it may come.
    std::optional<std::string> refuses(const std::string& address,
                                       const CasterSettings& limits) const;
    /// Whether so many wrong passwords came from there that nobody there is heard now.
    bool locksOut(const std::string& address, Instant now) const;
    /// The same of a user who would have one more stream.
    std::optional<std::string> refusesUser(const std::string& user,
                                           const CasterSettings& limits) const;
    /// A wrong password came from there; true for the one after which it is locked out for a
    /// minute.
    bool wrongPassword(const std::string& address, Instant now);
    /// Whether a refusal is to be told: once a minute for each address.
    bool tellsRefusal(const std::string& address, Instant now);
    /// What is over.
    void forgetOld(Instant now);

    std::size_t clients() const { return clients_; }

    /// Counts one connection, or one stream of a user, for as long as it lives.
    class Place {
    public:
        Place(std::map<std::string, std::size_t>& counts, std::string key, std::size_t& all)
            : counts_(counts), key_(std::move(key)), all_(all) {
            ++counts_[key_];
            ++all_;
        }
        ~Place() {
            --all_;
            if (--counts_[key_] == 0)
                counts_.erase(key_);
        }
        Place(const Place&) = delete;
        Place& operator=(const Place&) = delete;

    private:
        std::map<std::string, std::size_t>& counts_;
        std::string key_;
        std::size_t& all_;
    };
    Place connection(const std::string& address) { return {byAddress_, address, clients_}; }
    Place stream(const std::string& user) { return {byUser_, user, streams_}; }

private:
    std::map<std::string, std::size_t> byAddress_, byUser_;
    std::size_t clients_ = 0, streams_ = 0;
    std::map<std::string, std::deque<Instant>> wrong_; // passwords, by address
    std::map<std::string, Instant> told_;              // refusals, by address
};

} // namespace gateway
