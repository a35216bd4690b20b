#pragma once

#include "gateway/caster/Admission.h"
#include "gateway/caster/Rover.h"
#include "gateway/net/Listeners.h"
#include "gateway/net/Tasks.h"
#include "gateway/settings/Settings.h"
#include "gateway/settings/Users.h"
#include "gateway/station/Station.h"

#include <boost/asio/ssl/context.hpp>
#include <boost/asio/thread_pool.hpp>

#include <functional>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <vector>

/// Caster: what rovers and pushing receivers connect to.

namespace gateway {

/// The stations of the gateway; one that is being stopped is kept by those who use it.
class Stations {
public:
    /// By its mountpoint; null where there is none.
    virtual std::shared_ptr<Station> find(const std::string& mountpoint) const = 0;
    virtual std::vector<ntrip::StreamEntry> table(Instant now) const = 0;
    /// In the order of their names.
    virtual void forEach(const std::function<void(Station&)>& take) const = 0;

protected:
    ~Stations() = default;
};

class Caster {
public:
    Caster(const asio::any_io_executor& executor, const Stations& stations);

    /// Limits, users and certificate for whoever comes from now on; opens and closes listeners,
    /// those that did not change stay open. Why some cannot be opened; they are tried again every
    /// second. std::runtime_error: the certificate cannot be used, and nothing has changed.
    std::vector<std::string> apply(CasterSettings settings, std::shared_ptr<Users> users);
    /// Cuts off the rovers whose password is none any more, and those who are not in their
    /// station's access as it is now.
    void sendAwayWhoMayNotStay();
    void stop();
    bool idle() const { return listeners_.idle() && tlsListeners_.idle() && clients_.idle(); }
    void tick(Instant now);

    std::size_t clients() const { return admission_.clients(); }
    /// Whether a user has this password, as one who would have a stream is asked.
    awaitable<Login> admits(std::string address, std::string user, Secret password);

private:
    awaitable<void> converse(tcp::socket socket, bool tls);
    awaitable<void> answer(Channel& channel, const std::string& address);
    awaitable<void> answerRequest(Channel& channel, const std::string& address,
                                  ntrip::Parsed parsed, std::string rest);
    awaitable<void> sendTable(Channel& channel, const ntrip::Request& request);
    awaitable<void> serve(Channel& channel, ntrip::Request request, Station& station,
                          std::string hash, std::string rest);
    awaitable<void> hear(Channel& channel, const ntrip::Request& request, Station& station,
                         std::string rest);
    std::string hashOf(const std::string& user) const { return users_ ? users_->hashOf(user) : ""; }
    awaitable<bool> matches(std::string user, Secret password);
    enum class Entry { granted, noPassword, wrongPassword, lockedOut, notListed };
    awaitable<Entry> examine(std::string address, std::string user, Secret password);
    awaitable<Entry> entryOf(const std::string& address, const ntrip::Request& request,
                             const Station& station);
    void wrongPassword(const std::string& address);
    void tellRefused(const std::string& address, const ntrip::Request& request,
                     const std::string& station, Entry entry);
    bool locksOut(const std::string& address);
    void saySeldom(Level level, const std::string& name, const std::string& line);
    awaitable<void> refuseMountpoint(Channel& channel, const ntrip::Request& request);
    awaitable<void> refuse(Channel& channel, const ntrip::Request& request, ntrip::Refusal why);

    asio::any_io_executor executor_;
    const Stations& stations_;
    CasterSettings settings_;
    std::shared_ptr<Users> users_; // null: none
    /// A rover that was granted a stream. Empty: it is here by no password.
    struct Admitted {
        const Station* station;
        std::string user, hash;
    };
    std::optional<std::string> whyNotStay(const Admitted& admitted) const;
    std::map<Rover*, Admitted> admitted_;
    std::shared_ptr<asio::ssl::context> tls_;
    Listeners listeners_, tlsListeners_;
    Admission admission_;
    asio::thread_pool hashing_{1}; // a hash takes long on purpose
    Tasks clients_;
};

} // namespace gateway
