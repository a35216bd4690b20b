#include "fuzz/support.h"

#include "gateway/web/WebServer.h"

#include <boost/asio/detached.hpp>
#include <boost/asio/io_context.hpp>

#include <algorithm>
#include <array>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

// A conversation with the page; the first byte says who may look, the rest is what a peer sends.

namespace {

using namespace gateway;

constexpr std::string_view kKnown = "for those who may look";

class View final : public WebView {
public:
    std::string fleetHead() const override { return "\"totals\":{}"; }
    std::string alarms() const override { return "[]"; }
    std::map<std::string, std::string> summaries() const override {
        return {{"A", "\"" + std::string(kKnown) + "\""}};
    }
    std::optional<std::string> station(const std::string& name) const override {
        return name == "A" ? std::optional(std::string(kKnown)) : std::nullopt;
    }
    std::optional<std::string> events(const std::optional<std::string>& of) const override {
        return station(of.value_or("A"));
    }
    std::string metrics() const override { return std::string(kKnown); }
    std::vector<std::string> untried() const override { return {"A"}; }
};

/// Sends its input in pieces and keeps what it is told.
class Peer final : public Channel {
public:
    Peer(::Bytes input, std::string& told) : told_(told) {
        inPieces(input, [this](::Bytes piece) { pieces_.push_back(piece); });
    }
    awaitable<std::size_t> read(std::span<std::uint8_t> into) override {
        if (next_ == pieces_.size())
            co_return 0;
        ::Bytes& piece = pieces_[next_];
        const std::size_t n = std::min(into.size(), piece.size());
        std::copy_n(piece.begin(), n, into.begin());
        piece = piece.subspan(n);
        next_ += piece.empty() ? 1U : 0U;
        co_return n;
    }
    awaitable<void> write(std::span<const std::uint8_t> bytes) override {
        told_ += gateway::textOf(bytes);
        co_return;
    }
    awaitable<void> untilBroken() override { co_return; }
    void close() override {}
    std::size_t unacknowledged() override { return 0; }
    std::string peer() const override { return "192.0.2.7:40000"; }
    HostPort local() const override { return {}; }

private:
    std::vector<::Bytes> pieces_;
    std::size_t next_ = 0;
    std::string& told_;
};

struct Page {
    asio::io_context context{1};
    View view;
    bool admitted = false;
    WebServer server{context.get_executor(), view,
                     [this](std::string, std::string user, Secret password) -> awaitable<Login> {
                         if (user == "mallory")
                             co_return Login::lockedOut;
                         admitted = admitted || (user == "bob" && password.reveal() == "right");
                         co_return admitted ? Login::right : Login::wrong;
                     }};
};

bool contains(std::string_view text, std::string_view part) {
    return text.find(part) != text.npos;
}

void requireAnswers(std::string_view told) {
    if (told.empty())
        return;
    constexpr std::array known{"200", "304", "400", "401", "404", "405",
                               "414", "421", "429", "431", "503"};
    require(told.starts_with("HTTP/1.1 ") && std::ranges::count(known, told.substr(9, 3)) == 1,
            "an answer has a status of HTTP");
    const std::string_view head = told.substr(0, told.find("\r\n\r\n"));
    for (const char* field : {"\r\nContent-Security-Policy: ", "\r\nContent-Type: ", "\r\nDate: "})
        require(contains(head, field), "an answer has its header fields");
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size == 0)
        return 0;
    static Page page; // its files are long
    WebSettings settings;
    settings.listen.clear();
    using Access = WebSettings::Access;
    constexpr std::array accesses{Access::machine, Access::users, Access::anyone};
    settings.access = accesses[data[0] % accesses.size()];
    page.server.apply(settings);
    page.admitted = false;

    const ::Bytes input = ::Bytes(data, size).subspan(1);
    std::string told;
    asio::co_spawn(page.context, page.server.converse(std::make_unique<Peer>(input, told), "x"),
                   asio::detached);
    page.context.restart();
    page.context.run();
    page.server.tick();

    require(page.server.idle() && page.server.hearers() == 0, "a conversation leaves nothing");
    requireAnswers(told);
    if (contains(told, kKnown)) {
        require(settings.access != Access::users || page.admitted, "users alone are told");
        const std::string_view sent = ::textOf(input);
        const auto sends = [&](std::string_view part) { return contains(sent, part); };
        require(settings.access != Access::machine || sends("localhost") || sends("127.") ||
                    sends("::1") || sends("::ffff:7f"),
                "who comes by another name is not told");
    }
    return 0;
}
