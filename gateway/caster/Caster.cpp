#include "gateway/caster/Caster.h"

#include "gateway/net/Attempts.h"
#include "gateway/net/OnThread.h"
#include "gateway/net/Say.h"
#include "gnss/Clock.h"

#include <boost/asio/co_spawn.hpp>
#include <openssl/crypto.h>

#include <algorithm>
#include <array>
#include <iterator>
#include <utility>

namespace gateway {

using namespace std::chrono_literals;
using boost::system::error_code;
using ntrip::Refusal;
using ntrip::Request;

namespace {

constexpr Duration kRequestLimit = 10s;
constexpr Duration kTellLimit = 10s; // for an answer that is not a stream
constexpr Duration kPushSilence = 60s;
constexpr const char* kPushSilent = "nothing came for 60 s";
constexpr std::size_t kLongestShownMount = 100;

std::string dateNow() {
    return ntrip::httpDate(utcNow().time);
}

struct Head {
    std::string head, rest; // rest: what has come behind it
};

/// The content type of a handshake (RFC 8446, 5.1): no request begins with it.
bool beginsTls(std::string_view received) {
    return received.starts_with('\x16');
}

/// What is to tell of bytes that are no request; empty: nothing.
std::string noRequest(std::string_view received) {
    if (received.size() > ntrip::kLongestHead)
        return "is refused: its request is longer than 8 KiB";
    return beginsTls(received) ? "begins TLS where none is spoken" : "";
}

/// Without a head where the client goes, or sends what has none.
awaitable<Head> readHead(Channel& channel) {
    std::string received;
    std::array<std::uint8_t, 1024> buffer;
    for (;;) {
        if (const auto length = ntrip::headLength(received);
            length && *length <= ntrip::kLongestHead)
            co_return Head{received.substr(0, *length), received.substr(*length)};
        if (received.size() > ntrip::kLongestHead || beginsTls(received))
            co_return Head{"", std::move(received)};
        const std::size_t n = co_await channel.read(buffer);
        if (n == 0)
            co_return Head{"", std::move(received)};
        received += textOf(std::span(buffer).first(n));
    }
}

awaitable<void> readPush(Channel& channel, const Request& request, PushDoor& door, std::string rest,
                         Deadline& deadline) {
    ntrip::PushReader reader(request);
    Bytes data;
    auto state = reader.take(bytesOf(rest), data);
    std::array<std::uint8_t, 8192> buffer;
    while (state == ntrip::BodyState::flows) {
        if (!data.empty())
            door.deliver(data);
        data.clear();
        const std::size_t n = co_await channel.read(buffer);
        if (n == 0)
            break;
        deadline.set(kPushSilence, kPushSilent);
        state = reader.take(std::span(buffer).first(n), data);
    }
    if (!data.empty())
        door.deliver(data);
    throw ConversationEnd(state == ntrip::BodyState::malformed
                              ? "no readable chunk in what it sends"
                              : "the receiver has ended the stream");
}

awaitable<void> tell(Channel& channel, std::string text) {
    co_await within(kTellLimit, channel.write(bytesOf(text)), "takes no answer");
}

bool equalSecrets(const Secret& a, const Secret& b) {
    const std::string &x = a.reveal(), &y = b.reveal();
    return x.size() == y.size() && CRYPTO_memcmp(x.data(), y.data(), x.size()) == 0;
}

/// Whether the user may have the stream, with the right password.
bool lists(const Access& access, const std::string& user) {
    return access.who != Access::Who::listed || std::ranges::count(access.names, user) > 0;
}

/// std::runtime_error where a file cannot be used.
std::shared_ptr<asio::ssl::context> tlsOf(const CasterSettings& settings) {
    if (settings.listenTls.empty())
        return nullptr;
    auto context = std::make_shared<asio::ssl::context>(asio::ssl::context::tls_server);
    SSL_CTX_set_min_proto_version(context->native_handle(), TLS1_2_VERSION);
    try {
        context->use_certificate_chain_file(settings.certificate);
        context->use_private_key_file(settings.key, asio::ssl::context::pem);
    } catch (const boost::system::system_error& e) {
        throw std::runtime_error("the certificate " + settings.certificate.string() +
                                 " or its key " + settings.key.string() +
                                 " cannot be used: " + e.code().message());
    }
    return context;
}

} // namespace

Caster::Caster(const asio::any_io_executor& executor, const Stations& stations)
    : executor_(executor), stations_(stations),
      listeners_(executor, {"caster", "listens on ", ""},
                 [this](tcp::socket socket) {
                     clients_.start(converse(std::move(socket), /*tls=*/false));
                 }),
      tlsListeners_(executor, {"caster", "listens on ", " (TLS)"},
                    [this](tcp::socket socket) {
                        clients_.start(converse(std::move(socket), /*tls=*/true));
                    }),
      clients_(executor, [](const std::string&) {}) {}

std::vector<std::string> Caster::apply(CasterSettings settings, std::shared_ptr<Users> users) {
    tls_ = tlsOf(settings);
    settings_ = std::move(settings);
    users_ = std::move(users);
    std::vector<std::string> failures = listeners_.apply(settings_.listen);
    std::ranges::copy(tlsListeners_.apply(settings_.listenTls), std::back_inserter(failures));
    return failures;
}

void Caster::sendAwayWhoMayNotStay() {
    for (const auto& [rover, admitted] : admitted_)
        if (const auto why = whyNotStay(admitted))
            rover->sendAway(*why);
}

std::optional<std::string> Caster::whyNotStay(const Admitted& admitted) const {
    const Access& access = admitted.station->settings().access;
    if (access.who == Access::Who::anyone)
        return std::nullopt;
    if (admitted.hash.empty())
        return "the station asks for a password now";
    if (hashOf(admitted.user) != admitted.hash)
        return "its user is gone or has another password";
    if (!lists(access, admitted.user))
        return "the user is not one of the station's own any more";
    return std::nullopt;
}

void Caster::tick(Instant now) {
    admission_.forgetOld(now);
    listeners_.openMissing();
    tlsListeners_.openMissing();
}

void Caster::stop() {
    listeners_.stop();
    tlsListeners_.stop();
    clients_.cancel();
}

awaitable<void> Caster::converse(tcp::socket socket, bool tls) {
    error_code gone;
    const std::string address = addressOf(socket.remote_endpoint(gone)).to_string();
    if (gone)
        co_return;
    if (const auto why = admission_.refuses(address, settings_)) {
        if (admission_.tellsRefusal(address, std::chrono::steady_clock::now()))
            say(Level::warning, "caster", address + " is refused: " + *why);
        co_return;
    }
    const Admission::Place place = admission_.connection(address);
    error_code none; // the kernel doubles it
    socket.set_option(asio::socket_base::send_buffer_size(kKernelBytes / 2), none);
    ChannelPtr channel;
    if (tls) {
        const auto context = tls_; // stays, whatever becomes of the settings
        const auto state = co_await asio::this_coro::cancellation_state;
        std::string why;
        try {
            channel = co_await acceptTls(std::move(socket), *context, kRequestLimit);
        } catch (const std::exception& e) {
            why = reasonOf(e);
        }
        if (!channel && !isCancelled(state))
            saySeldom(Level::info, "caster", address + " on the TLS port: " + why);
    } else {
        channel = channelOf(std::move(socket));
    }
    if (channel)
        co_await answer(*channel, address);
}

awaitable<void> Caster::answer(Channel& channel, const std::string& address) {
    std::optional<Head> head;
    try {
        head = co_await within(kRequestLimit, readHead(channel), "no request");
    } catch (const TimeUp&) { // told below
    }
    if (!head) {
        saySeldom(Level::info, "caster", address + " has sent no request within 10 s");
        co_return;
    }
    if (head->head.empty()) {
        if (const std::string why = noRequest(head->rest); !why.empty())
            saySeldom(Level::info, "caster", address + " " + why);
        const Request none;
        co_await refuse(channel, none, Refusal::malformed);
        co_return;
    }
    ntrip::Parsed parsed = ntrip::parseRequest(head->head);
    co_await answerRequest(channel, address, std::move(parsed), std::move(head->rest));
}

awaitable<void> Caster::answerRequest(Channel& channel, const std::string& address,
                                      ntrip::Parsed parsed, std::string rest) {
    const Request& request = parsed.request;
    if (parsed.refusal) {
        co_await refuse(channel, request, *parsed.refusal);
        co_return;
    }
    if (locksOut(address)) {
        co_await refuse(channel, request, Refusal::lockedOut);
        co_return;
    }
    if (request.kind == Request::Kind::table) {
        co_await sendTable(channel, request);
        co_return;
    }
    const bool push = request.kind == Request::Kind::push;
    const std::shared_ptr<Station> station = stations_.find(request.mount);
    if (!station) {
        saySeldom(Level::info, "caster",
                  address + (push ? " pushes to" : " asks for") + " the mountpoint " +
                      request.mount.substr(0, kLongestShownMount) + ", of which there is none");
        co_await refuseMountpoint(channel, request);
        co_return;
    }
    const std::string& name = station->settings().name;
    if (push && !takesPushes(station->settings())) {
        saySeldom(Level::warning, name,
                  address + " is refused: it pushes a stream, and no source of the station is "
                            "caster:");
        co_await refuse(channel, request, Refusal::notFound);
        co_return;
    }
    // with which the password is compared; users and access may be others when that is done
    const bool asks = station->settings().access.who != Access::Who::anyone;
    std::string hash = asks ? hashOf(request.user) : "";
    const Entry entry = co_await entryOf(address, request, *station);
    if (entry == Entry::lockedOut) {
        co_await refuse(channel, request, Refusal::lockedOut);
    } else if (entry != Entry::granted) {
        tellRefused(address, request, name, entry);
        co_await refuse(channel, request, Refusal::unauthorized);
    } else if (push) {
        co_await hear(channel, request, *station, std::move(rest));
    } else if (!station->moved().empty()) {
        saySeldom(Level::info, name, address + " is refused: the position has moved");
        co_await refuseMountpoint(channel, request);
    } else {
        co_await serve(channel, request, *station, std::move(hash), std::move(rest));
    }
}

/// As each version has it where a stream is not to be had.
awaitable<void> Caster::refuseMountpoint(Channel& channel, const Request& request) {
    if (request.kind == Request::Kind::stream && request.dialect == ntrip::Dialect::icy)
        co_await sendTable(channel, request);
    else
        co_await refuse(channel, request, Refusal::notFound);
}

awaitable<void> Caster::sendTable(Channel& channel, const Request& request) {
    ntrip::CasterEntry caster;
    const HostPort here = channel.local(); // where this client has reached us
    caster.host = here.host;
    caster.port = here.port;
    caster.identifier = "Kestrune";
    caster.operatorName = settings_.operatorName;
    caster.country = settings_.country;
    const auto streams = stations_.table(std::chrono::steady_clock::now());
    co_await tell(channel,
                  ntrip::tableAnswer(request, ntrip::sourceTable(caster, streams), dateNow()));
}

void Caster::saySeldom(Level level, const std::string& name, const std::string& line) {
    const auto tells = admission_.tellsSeldom(name + ": " + line, std::chrono::steady_clock::now());
    if (tells == Admission::Tells::no)
        return;
    say(level, name, line);
    if (tells == Admission::Tells::last)
        say(Level::warning, "caster",
            "1000 lines about clients within an hour: further ones are not told");
}

void Caster::wrongPassword(const std::string& address) {
    if (admission_.wrongPassword(address, std::chrono::steady_clock::now()))
        say(Level::warning, "caster",
            address + ": ten wrong passwords in a minute; refused for a minute");
}

void Caster::tellRefused(const std::string& address, const Request& request,
                         const std::string& station, Entry entry) {
    const bool push = request.kind == Request::Kind::push;
    const char* const why = entry == Entry::noPassword  ? "no password"
                            : entry == Entry::notListed ? "the user is not one of its own"
                            : push                      ? "wrong password to push a stream"
                                                        : "wrong user or password";
    say(push ? Level::warning : Level::info, station, address + " is refused: " + why);
}

awaitable<Caster::Entry> Caster::entryOf(const std::string& address, const Request& request,
                                         const Station& station) {
    if (request.kind == Request::Kind::push) {
        if (!request.password.empty() &&
            equalSecrets(request.password, station.settings().password))
            co_return Entry::granted;
        wrongPassword(address);
        co_return Entry::wrongPassword;
    }
    const Access& access = station.settings().access;
    if (access.who == Access::Who::anyone)
        co_return Entry::granted;
    if (!users_ || !request.named)
        co_return Entry::noPassword;
    const bool listed = lists(access, request.user);
    const Entry entry = co_await examine(address, request.user, request.password);
    co_return entry == Entry::granted && !listed ? Entry::notListed : entry;
}

awaitable<Caster::Entry> Caster::examine(std::string address, std::string user, Secret password) {
    const Admission::Turn turn = co_await admission_.turn(address);
    if (locksOut(address)) // by those that were examined before
        co_return Entry::lockedOut;
    bool right = false;
    if (users_) // still
        right = co_await matches(std::move(user), std::move(password));
    if (right)
        co_return Entry::granted;
    wrongPassword(address);
    co_return Entry::wrongPassword;
}

/// On a thread of its own: nobody waits for the hash but who sent the password.
awaitable<bool> Caster::matches(std::string user, Secret password) {
    const auto hash = [users = users_, name = std::move(user), what = std::move(password)] {
        return users->matches(name, what);
    };
    co_return co_await onThread(hashing_, hash);
}

bool Caster::locksOut(const std::string& address) {
    const Instant now = std::chrono::steady_clock::now();
    if (!admission_.locksOut(address, now))
        return false;
    if (admission_.tellsRefusal(address, now))
        say(Level::warning, "caster", address + " is refused: ten wrong passwords in a minute");
    return true;
}

awaitable<Login> Caster::admits(std::string address, std::string user, Secret password) {
    if (locksOut(address))
        co_return Login::lockedOut;
    if (!users_)
        co_return Login::wrong;
    const Entry entry = co_await examine(std::move(address), std::move(user), std::move(password));
    if (entry == Entry::lockedOut)
        co_return Login::lockedOut;
    co_return entry == Entry::granted ? Login::right : Login::wrong;
}

awaitable<void> Caster::serve(Channel& channel, Request request, Station& station, std::string hash,
                              std::string rest) {
    if (station.settings().access.who == Access::Who::anyone) {
        request.named = false; // nobody has proved the name
        request.user.clear();
    }
    if (const auto why = request.named ? admission_.refusesUser(request.user, settings_)
                                       : std::optional<std::string>()) {
        say(Level::warning, station.settings().name, channel.peer() + " is refused: " + *why);
        co_await refuse(channel, request, Refusal::tooMany);
        co_return;
    }
    const Admission::Place place = admission_.stream(request.user);
    const Admitted admitted{&station, request.user, std::move(hash)};
    co_await tell(channel, ntrip::grantText(request, dateNow()));
    if (request.head || whyNotStay(admitted)) // the settings are others now
        co_return;
    Rover rover(executor_, channel, std::move(request), station.mountpoint());
    if (const std::string& gga = rover.request().gga; !gga.empty())
        rover.hear(gga + "\r\n");
    rover.hear(rest);
    struct Known {
        std::map<Rover*, Admitted>& all;
        Rover* one;
        ~Known() { all.erase(one); }
    } const known{admitted_, &rover};
    admitted_.emplace(&rover, admitted);
    const Joined joined(station.mountpoint(), rover);
    const std::string who = "rover " + channel.peer() +
                            (rover.request().user.empty() ? "" : " (" + rover.request().user + ")");
    say(Level::info, station.settings().name,
        who + " gets the stream" +
            (rover.request().agent.empty() ? "" : ", " + rover.request().agent));
    const std::string why = co_await rover.run();
    say(rover.cutOff() ? Level::notice : Level::info, station.settings().name, who + " " + why);
}

awaitable<void> Caster::hear(Channel& channel, const Request& request, Station& station,
                             std::string rest) {
    PushDoor& door = station.mountpoint().door;
    if (!door.open()) {
        say(Level::warning, station.settings().name,
            channel.peer() + " is refused: " +
                (door.waiting() ? "another receiver pushes its stream"
                                : "no source waits for one"));
        co_await refuse(channel, request, door.waiting() ? Refusal::taken : Refusal::notFound);
        co_return;
    }
    struct Inside {
        PushDoor& door;
        Channel& channel;
        std::string why = "the receiver is gone";
        bool sentAway = false;
        Inside(PushDoor& of, Channel& to) : door(of), channel(to) {
            door.enter(channel.peer(), [this] {
                sentAway = true;
                channel.close();
            });
        }
        ~Inside() { door.leave(channel.peer() + ": " + (sentAway ? "is sent away" : why)); }
    } inside(door, channel);
    co_await tell(channel, ntrip::grantText(request, dateNow()));
    say(Level::notice, station.settings().name,
        "a receiver at " + channel.peer() + " pushes its stream");
    Deadline deadline(kPushSilence, kPushSilent);
    const Ending end = co_await endOf(
        firstOf(readPush(channel, request, door, std::move(rest), deadline), deadline.passed()));
    inside.why = end.why;
}

awaitable<void> Caster::refuse(Channel& channel, const Request& request, Refusal why) {
    co_await tell(channel, ntrip::refusalText(request, why, dateNow()));
}

} // namespace gateway
