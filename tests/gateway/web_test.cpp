#include "gateway/running.h"

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
    EXPECT_EQ(status("/", "Host: localhost\r\n", "POST"), 400);
    EXPECT_EQ(status("/", "Host: localhost\r\nContent-Length: 4\r\n"), 400);
    EXPECT_EQ(status("/", "Host: localhost\r\nTransfer-Encoding: chunked\r\n"), 400);
    EXPECT_EQ(status("/", "Host: localhost\r\nX: " + std::string(9000, 'x') + "\r\n"), 400);
    EXPECT_EQ(status("/", "Host: rebound.example.org\r\n"), 421);
    const Answer head = get(page.caster, "/", "Host: localhost\r\n", "HEAD");
    EXPECT_EQ(head.status, 200);
    EXPECT_EQ(head.body, "");
    EXPECT_NE(head.head.find("Content-Security-Policy: default-src 'none';"), head.head.npos);
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
