#include "gateway/caster/Admission.h"

namespace gateway {

using namespace std::chrono_literals;

namespace {

constexpr Duration kWindow = 1min; // of wrong passwords, and of being refused for them
constexpr std::size_t kMostWrong = 10;
constexpr Duration kSeldom = 1h; // of a line that anybody can cause
constexpr std::size_t kMostSeldom = 1000;

} // namespace

std::optional<std::string> Admission::refuses(const std::string& address,
                                              const CasterSettings& limits) const {
    if (clients_ >= limits.mostClients)
        return "there are " + std::to_string(clients_) + " clients (max_clients)";
    const auto here = byAddress_.find(address);
    if (here != byAddress_.end() && here->second >= limits.mostPerAddress)
        return "it has " + std::to_string(here->second) + " connections (max_per_address)";
    return std::nullopt;
}

bool Admission::locksOut(const std::string& address, Instant now) const {
    const auto wrong = wrong_.find(address);
    return wrong != wrong_.end() && wrong->second.size() >= kMostWrong &&
           now - wrong->second.back() < kWindow;
}

std::optional<std::string> Admission::refusesUser(const std::string& user,
                                                  const CasterSettings& limits) const {
    const auto here = byUser_.find(user);
    if (here == byUser_.end() || here->second < limits.mostPerUser)
        return std::nullopt;
    return "user " + user + " has " + std::to_string(here->second) + " streams (max_per_user)";
}

bool Admission::wrongPassword(const std::string& address, Instant now) {
    std::deque<Instant>& times = wrong_[address];
    while (!times.empty() && now - times.front() > kWindow)
        times.pop_front();
    times.push_back(now);
    return times.size() == kMostWrong;
}

bool Admission::tellsRefusal(const std::string& address, Instant now) {
    return told_.emplace(address, now).second;
}

Admission::Tells Admission::tellsSeldom(const std::string& line, Instant now) {
    if (seldom_.size() >= kMostSeldom || !seldom_.emplace(line, now).second)
        return Tells::no;
    return seldom_.size() < kMostSeldom ? Tells::yes : Tells::last;
}

awaitable<Admission::Turn> Admission::turn(std::string address) {
    const auto executor = co_await asio::this_coro::executor;
    std::shared_ptr<Gate>& gate = gates_[address];
    if (!gate)
        gate = std::make_shared<Gate>(executor, 1);
    const std::shared_ptr<Gate> mine = gate;
    const boost::system::error_code none;
    co_await mine->async_send(none, use_awaitable);
    co_return Turn(mine);
}

void Admission::forgetOld(Instant now) {
    std::erase_if(seldom_, [&](const auto& one) { return now - one.second > kSeldom; });
    std::erase_if(gates_, [](const auto& one) { return one.second.use_count() == 1; });
    std::erase_if(told_, [&](const auto& one) { return now - one.second > kWindow; });
    std::erase_if(wrong_, [&](const auto& one) { return now - one.second.back() > kWindow; });
}

} // namespace gateway
