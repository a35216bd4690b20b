#include "gateway/kept_lines.h"
#include "gateway/running.h"
#include "gateway/web/WebServer.h"

#include <boost/asio/io_context.hpp>
#include <nlohmann/json.hpp>

// The page, the API, the metrics and the alarms of a gateway that runs.

namespace running {

namespace {

using Json = nlohmann::json;

struct Answer {
    int status = 0;
    std::string head, body;
};

/// By a connection of its own.
Answer get(int port, const std::string& target, const std::string& headers = "Host: localhost\r\n",
           const std::string& method = "GET") {
    Client client(port);
    EXPECT_TRUE(client.send(method + " " + target + " HTTP/1.1\r\n" + headers +
                            "Connection: close\r\n\r\n"));
    Answer out;
    out.head = client.head();
    out.body = client.rest();
    if (out.head.size() > 12)
        out.status = std::stoi(out.head.substr(9, 3));
    return out;
}

/// The station, once its state is that.
Json stationThat(int port, const std::function<bool(const Json&)>& fits) {
    Json out;
    for (int i = 0; i < 200; ++i) {
        out = Json::parse(get(port, "/api/v1/stations/CANB").body);
        if (fits(out))
            break;
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
    }
    return out;
}

std::string pageAt(int port, const std::string& more = "") {
    return "[web]\nlisten = [\"127.0.0.1:" + std::to_string(port) + "\"]\n" + more;
}

} // namespace

TEST(Web, TellsWhatBecomesOfAStation) {
    const Ports ports, page;
    RunningGateway gateway(ports, stationSource(ports) + kPosition, pageAt(page.caster));
    ASSERT_TRUE(gateway.engineConnected()) << gateway.log();
    EXPECT_EQ(get(page.caster, "/healthz").body, "works\n");
    Client rover(
        ports.caster,
        "GET /CANB HTTP/1.0\r\nUser-Agent: NTRIP <script>alert(1)</script>\r\n"
        "Ntrip-GGA: $GPGGA,123519,4807.038,N,01131.000,E,1,08,0.9,545.4,M,46.9,M,,*47\r\n\r\n",
        kGranted);
    Client live(page.caster);
    ASSERT_TRUE(live.send("GET /api/v1/live HTTP/1.1\r\nHost: [::1]:9\r\n\r\n"));
    const Client station(ports.station);
    ASSERT_TRUE(station.send(streamOf(5)));
    const Bytes received = rover.receive(epochs(5));
    const Json s = stationThat(page.caster, [](const Json& j) {
        return j["state"] == "delivering" && j["audit"]["epochs_total"] == 5;
    });

    // What a rover got, counted from its bytes.
    std::map<std::string, std::set<std::string>> last;
    std::size_t cells = 0;
    for (const ref::Frame& f : ref::goodFrames(received))
        if (const auto head = ref::headOf(f)) {
            if (f.type == 1077) {
                last.clear();
                cells = 0;
            }
            for (const ref::Cell& c : ref::readMsm(f.body).cells) {
                last[std::string(1, c.system)].insert(c.sat);
                ++cells;
            }
        }
    ASSERT_GE(last.size(), 4U);
    for (const auto& [system, satellites] : last)
        EXPECT_EQ(s["satellites"][system]["answered_count"], satellites.size()) << system;
    EXPECT_EQ(s["kept_signals_count"], cells);
    std::size_t answered = 0;
    for (const Json& satellite : s["sky"]) {
        const std::string name = satellite["name"];
        const bool kept = last[name.substr(0, 1)].contains(name);
        EXPECT_EQ(satellite["fate"] == "answered", kept) << satellite;
        answered += kept ? 1 : 0;
    }
    EXPECT_GT(answered, 20U);
    EXPECT_EQ(s["rovers_count"], 1);
    EXPECT_EQ(s["rovers"][0]["agent"], "NTRIP <script>alert(1)</script>");
    EXPECT_EQ(s["rovers"][0]["sent_bytes_total"], received.size());
    EXPECT_NEAR(s["rovers"][0]["place"]["latitude_deg"], 48.1173, 1e-6);
    EXPECT_EQ(s["engine"]["state"], "connected");
    EXPECT_EQ(s["sources"][0]["active"], true);
    EXPECT_LT(s["delay_s"], 1.0);
    EXPECT_NEAR(s["place"]["latitude_deg"], -35.32, 0.02);
    for (const Json& w : s["audit"]["worst"])
        EXPECT_LE(w["range_m"], w["range_bound_m"]);
    EXPECT_EQ(s["alarms_now"].size(), 0U) << s["alarms_now"];

    // Listeners hear of it as it comes.
    std::string heard;
    const auto delivering = [&](const Bytes& all) {
        heard.assign(all.begin(), all.end());
        return heard.find("\"state\":\"delivering\"") != heard.npos;
    };
    live.receive(delivering);
    EXPECT_NE(heard.find("event: fleet\ndata: {"), heard.npos) << heard;

    const std::string metrics = get(page.caster, "/metrics").body;
    EXPECT_NE(metrics.find("kestrune_gateway_sent_epochs_total{station=\"CANB\"} 5\n"),
              metrics.npos)
        << metrics;
    EXPECT_EQ(metrics.find("G0"), metrics.npos) << "no label for each satellite";
    EXPECT_EQ(metrics.find("clock_ahead"), metrics.npos) << "its time is not of now";
    EXPECT_EQ(get(page.caster, "/readyz").status, 200);
    EXPECT_EQ(Json::parse(get(page.caster, "/api/v1/stations").body)["stations"].size(), 1U);
    EXPECT_GE(Json::parse(get(page.caster, "/api/v1/events?station=CANB").body)["events"].size(),
              2U);
    EXPECT_EQ(gateway.end(SIGTERM), 0) << "with a listener";
}

TEST(Web, RefusesWhatIsNoRequestOfItsReaders) {
    const Ports ports, page;
    RunningGateway gateway(ports, stationSource(ports) + kPosition, pageAt(page.caster));
    const auto status = [&](const std::string& target,
                            const std::string& headers = "Host: localhost\r\n",
                            const std::string& method = "GET") {
        return get(page.caster, target, headers, method).status;
    };
    EXPECT_EQ(status("/api/v1/stations/NONE"), 404);
    EXPECT_EQ(status("/api/v1/live?station=NONE"), 404);
    EXPECT_EQ(status("/../../etc/passwd"), 404);
    EXPECT_EQ(status("/%zz"), 400);
    EXPECT_EQ(status("/", "Host: localhost\r\nContent-Length: 4\r\n"), 400);
    EXPECT_EQ(status("/", "Host: localhost\r\nTransfer-Encoding: chunked\r\n"), 400);
    EXPECT_EQ(status("/", "Host: localhost\r\nX: " + std::string(100'000, 'x') + "\r\n"), 431);
    EXPECT_EQ(status("/" + std::string(100'000, 'x')), 414);
    const Answer post = get(page.caster, "/", "Host: localhost\r\nContent-Length: 4\r\n", "POST");
    EXPECT_EQ(post.status, 405);
    EXPECT_NE(post.head.find("Allow: GET, HEAD\r\n"), post.head.npos) << post.head;
    EXPECT_NE(post.body.find("read only"), post.body.npos) << post.body;
    for (const char* host : {"rebound.example.org", "localhost.example.org", "localhost..", "."})
        EXPECT_EQ(status("/", std::string("Host: ") + host + "\r\n"), 421) << host;
    for (const char* host : {"LOCALHOST.", "localhost:80", "LocalHost.:80", "127.0.0.2", "[::1]:1"})
        EXPECT_EQ(status("/", std::string("Host: ") + host + "\r\n"), 200) << host;
    const Answer head = get(page.caster, "/", "Host: localhost\r\n", "HEAD");
    EXPECT_EQ(head.status, 200);
    EXPECT_EQ(head.body, "");
    EXPECT_NE(head.head.find("Content-Security-Policy: default-src 'none';"), head.head.npos);
}

TEST(Web, TellsWhyAnAddressIsLockedOut) {
    const Ports ports, page;
    const fs::path users = fs::path(testing::TempDir()) / ("web_users" + std::to_string(getpid()));
    std::ofstream(users) << "bob:$6$xyz$1eVrW9iTV47n6TEReDhgVvgN.3Utzg4HHp7LC3N4MQiB9cQVzA/"
                            "4MPOg1BjELWqGGoyQt0BzZdpXpLIJOecUR.\n";
    fs::permissions(users, fs::perms::owner_read | fs::perms::owner_write);
    RunningGateway gateway(ports, stationSource(ports) + kPosition,
                           "users = \"" + users.string() + "\"\n" +
                               pageAt(page.caster, "access = \"users\"\n"));
    const std::string wrong = "Host: x\r\nAuthorization: Basic Ym9iOndyb25n\r\n"; // bob:wrong
    for (int i = 0; i < 10; ++i)
        EXPECT_EQ(get(page.caster, "/", wrong).status, 401);
    const Answer refused = get(page.caster, "/", wrong);
    EXPECT_EQ(refused.status, 429);
    EXPECT_NE(refused.head.find("Retry-After: 60\r\n"), refused.head.npos) << refused.head;
    EXPECT_NE(refused.body.find("ten wrong passwords"), refused.body.npos) << refused.body;
    Client rover(ports.caster);
    ASSERT_TRUE(rover.send("GET /CANB HTTP/1.1\r\nNtrip-Version: Ntrip/2.0\r\n\r\n"));
    const std::string answer = rover.rest();
    EXPECT_TRUE(answer.starts_with("HTTP/1.1 429 Too Many Requests\r\n")) << answer;
    EXPECT_NE(answer.find("ten wrong passwords"), answer.npos) << answer;
    EXPECT_EQ(gateway.count("is refused: ten wrong passwords in a minute"), 1);
    EXPECT_EQ(get(page.caster, "/healthz", "Host: x\r\n").status, 200);
    fs::remove(users);
}

// Alarms follow what is wrong while no station changes.
TEST(Web, TellsListenersOfAlarmsAlone) {
    struct View final : gateway::WebView {
        std::string fleetHead() const override { return "\"at_unix_s\":1"; }
        std::string alarms() const override { return alarm; }
        std::map<std::string, std::string> summaries() const override { return {{"A", "{}"}}; }
        std::optional<std::string> station(const std::string&) const override { return {}; }
        std::optional<std::string> events(const std::optional<std::string>&) const override {
            return {};
        }
        std::string metrics() const override { return {}; }
        std::vector<std::string> untried() const override { return {}; }
        std::string alarm = "[]";
    } view;
    KeptLines lines;
    printTarget = &lines;
    boost::asio::io_context context;
    gateway::WebServer server(
        context.get_executor(), view,
        [](std::string, std::string, gateway::Secret) -> gateway::awaitable<gateway::Login> {
            co_return gateway::Login::right;
        });
    const Ports page;
    gateway::WebSettings settings;
    settings.listen = {{"127.0.0.1", static_cast<std::uint16_t>(page.caster)}};
    server.apply(settings);
    Client live(page.caster);
    ASSERT_TRUE(live.send("GET /api/v1/live HTTP/1.1\r\nHost: localhost\r\n\r\n"));
    const auto hears = [&](const std::string& what) {
        std::string heard;
        for (int i = 0; i < 2000 && !heard.ends_with(what); ++i) {
            context.run_for(std::chrono::milliseconds(5));
            const Bytes more = live.now();
            heard.append(more.begin(), more.end());
        }
        return heard;
    };
    EXPECT_TRUE(hears("\"alarms\":[],\"stations\":[{}]}\n\n").starts_with("HTTP/1.1 200 OK\r\n"));
    server.tick();
    view.alarm = "[1]";
    server.tick();
    EXPECT_EQ(hears("}\n\n"),
              "event: fleet\ndata: {\"at_unix_s\":1,\"alarms\":[1],\"stations\":[]}\n\n");
    server.stop();
    context.run();
    printTarget = nullptr;
}

TEST(Web, CallsAWebhookWhenTheBaseMoves) {
    const Ports ports, page, hook;
    const int listener = boundSocket(const_cast<int&>(hook.station));
    ASSERT_EQ(listen(listener, 8), 0);
    RunningGateway gateway(ports, stationSource(ports) + kPosition,
                           pageAt(page.caster, "[alarms]\nwebhook = \"http://127.0.0.1:" +
                                                   std::to_string(hook.station) + "/x?y=1\"\n"));
    ASSERT_TRUE(gateway.engineConnected()) << gateway.log();
    const Client station(ports.station);
    ref::Vec3 moved = kSite;
    moved[0] += 50;
    ASSERT_TRUE(station.send(ref::frame(ref::write1005({.station = 1, .xyzM = moved}))));
    const auto called = [&](const std::string& status) {
        const int fd = accept(listener, nullptr, nullptr);
        std::string got;
        std::array<char, 4096> in{};
        while (got.find("}") == got.npos) {
            const auto n = recv(fd, in.data(), in.size(), 0);
            if (n <= 0)
                break;
            got.append(in.data(), static_cast<std::size_t>(n));
        }
        const std::string answer = "HTTP/1.1 " + status + "\r\nContent-Length: 0\r\n\r\n";
        ::send(fd, answer.data(), answer.size(), MSG_NOSIGNAL);
        close(fd);
        return got;
    };
    called("503 Service Unavailable"); // it comes again
    const std::string got = called("204 No Content");
    EXPECT_TRUE(got.starts_with("POST /x?y=1 HTTP/1.1\r\n")) << got;
    const Json json = Json::parse(got.substr(std::min(got.find('{'), got.size())));
    EXPECT_EQ(json["kind"], "moved");
    EXPECT_EQ(json["station"], "CANB");
    EXPECT_EQ(json["state"], "begins");
    const Json s = stationThat(page.caster, [](const Json& j) { return j["state"] == "stopped"; });
    EXPECT_EQ(s["alarms"], Json({"moved"}));
    close(listener);
}

} // namespace running
