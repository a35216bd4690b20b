#pragma once

#include "gateway/net/Within.h"
#include "gateway/settings/Settings.h"

#include <boost/asio/experimental/channel.hpp>

#include <deque>
#include <map>
#include <memory>
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
    /// Whether a line that anybody can cause is to be told: once an hour, and at most 1000
    /// different ones in that time.
    enum class Tells { no, yes, last };
    Tells tellsSeldom(const std::string& line, Instant now);
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
    /// Held by one password of an address after the other while it is examined: so the limit of
    /// wrong ones bounds the hashes that are computed, however many come at once.
    using Gate = asio::experimental::channel<void(boost::system::error_code)>;
    class Turn {
    public:
        explicit Turn(std::shared_ptr<Gate> gate) : gate_(std::move(gate)) {}
        ~Turn() {
            if (gate_)
                gate_->try_receive([](boost::system::error_code) {});
        }
        Turn(Turn&& other) = default; // which then holds none
        Turn& operator=(Turn&&) = delete;

    private:
        std::shared_ptr<Gate> gate_;
    };
    awaitable<Turn> turn(std::string address);

    Place connection(const std::string& address) { return {byAddress_, address, clients_}; }
    Place stream(const std::string& user) { return {byUser_, user, streams_}; }

private:
    std::map<std::string, std::size_t> byAddress_, byUser_;
    std::size_t clients_ = 0, streams_ = 0;
    std::map<std::string, std::deque<Instant>> wrong_;   // passwords, by address
    std::map<std::string, Instant> told_;                // refusals, by address
    std::map<std::string, Instant> seldom_;              // lines
    std::map<std::string, std::shared_ptr<Gate>> gates_; // by address
};

} // namespace gateway
