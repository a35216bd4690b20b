#include "gateway/app/Notifier.h"
#include "gateway/kept_lines.h"
#include "gateway/net/Channel.h"
#include "gateway/station/Child.h"
#include "service.h"

#include <boost/asio/detached.hpp>
#include <boost/asio/io_context.hpp>
#include <boost/asio/read_until.hpp>
#include <boost/asio/streambuf.hpp>
#include <boost/asio/write.hpp>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <filesystem>
#include <fstream>
#include <list>

// Who is called when an alarm begins or ends, and what becomes of one who does not listen.

using namespace gateway;
using namespace std::chrono_literals;

namespace {

namespace fs = std::filesystem;

/// What is said while it lives.
struct Lines {
    Lines() { printTarget = &kept; }
    ~Lines() { printTarget = nullptr; }
    Lines(const Lines&) = delete;
    Lines& operator=(const Lines&) = delete;
    KeptLines kept;
};

/// A web server that answers each request with the next of its texts, the last ones with 204.
struct Hook {
    Hook(asio::io_context& context, std::vector<std::string> with)
        : acceptor(context, {asio::ip::address_v4::loopback(), 0}), answers(std::move(with)) {
        asio::co_spawn(context, serve(), asio::detached);
    }
    std::string url(const std::string& user = "") const {
        return "http://" + user + "127.0.0.1:" + std::to_string(acceptor.local_endpoint().port()) +
               "/alarms?a=b";
    }
    awaitable<void> serve() {
        for (;;) {
            tcp::socket socket = co_await acceptor.async_accept(use_awaitable);
            asio::streambuf in;
            boost::system::error_code e;
            co_await asio::async_read_until(socket, in, "}",
                                            asio::redirect_error(use_awaitable, e));
            const auto data = in.data();
            got.emplace_back(asio::buffers_begin(data), asio::buffers_end(data));
            const std::string answer = got.size() <= answers.size()
                                           ? answers[got.size() - 1]
                                           : "HTTP/1.1 204 No Content\r\n\r\n";
            for (bool more = true; more && !e; more = answer.starts_with("endless")) {
                const std::string text =
                    more && answer.starts_with("endless") ? std::string(4096, 'x') : answer;
                co_await asio::async_write(socket, asio::buffer(text),
                                           asio::redirect_error(use_awaitable, e));
            }
        }
    }
    tcp::acceptor acceptor;
    std::vector<std::string> answers, got;
};

Alarm alarmOf(const std::string& station, const std::string& text = "rovers get nothing") {
    return {AlarmKind::audit, station, text, 1.5};
}

Alarm ended(Alarm alarm) {
    alarm.lasted = 72s;
    return alarm;
}

/// Until that holds, 25 s at most.
bool becomes(asio::io_context& context, const std::function<bool()>& holds) {
    const Instant end = std::chrono::steady_clock::now() + 25s;
    while (!holds() && std::chrono::steady_clock::now() < end)
        context.run_one_for(100ms);
    return holds();
}

void end(asio::io_context& context, Notifier& notifier) {
    notifier.stop();
    EXPECT_TRUE(becomes(context, [&] { return notifier.idle(); }));
}

} // namespace

// Each by itself: what one refuses or does not answer is nothing to the others.
TEST(Webhook, IsCalledAgainWhereThatMayHelpAndGetsAllInOrder) {
    const Lines lines;
    asio::io_context context;
    struct Case {
        std::vector<std::string> bad;
        std::size_t calls; // until it has got the last
    };
    const Case cases[] = {{{"HTTP/1.1 500 Internal Server Error\r\n\r\n", "nonsense\r\n\r\n"}, 4},
                          {{"HTTP/1.1 429 Too Many Requests\r\n\r\n"}, 3},
                          {{"endless"}, 3},
                          {{"HTTP/1.1 302 Found\r\nLocation: http://127.0.0.1:1/\r\n\r\n"}, 2},
                          {{"HTTP/1.1 404 Not Found\r\n\r\n"}, 2},
                          {{}, 2}};
    std::list<Hook> hooks;
    Settings settings;
    settings.name = "roof \xff";
    settings.alarms.webhooks = {"http://127.0.0.1:1/"}; // nobody is there
    for (const Case& c : cases) {
        const Hook& hook = hooks.emplace_back(context, c.bad);
        settings.alarms.webhooks.push_back(hook.url(c.bad.empty() ? "joe:a%3Ab@" : ""));
    }
    Notifier notifier(context.get_executor());
    notifier.apply(settings);
    notifier.tell(alarmOf("CANB"));
    notifier.tell(ended(alarmOf("CANB")));
    EXPECT_TRUE(becomes(context, [&] {
        const Case* c = std::begin(cases);
        return std::ranges::all_of(hooks,
                                   [&](const Hook& h) { return h.got.size() == (c++)->calls; });
    }));
    for (const Hook& hook : hooks) {
        const std::string& last = hook.got.back();
        EXPECT_TRUE(last.starts_with("POST /alarms?a=b HTTP/1.1\r\n")) << last;
        const auto json = nlohmann::json::parse(last.substr(last.find('{')));
        EXPECT_EQ(json["gateway"], "roof ?");
        EXPECT_EQ(json["state"], "ends");
        EXPECT_EQ(json["kind"], "audit");
        EXPECT_EQ(json["station"], "CANB");
        EXPECT_EQ(json["text"], "lasted 72 s; last: rovers get nothing");
        EXPECT_EQ(json["lasted_s"], 72.0);
        EXPECT_NE(hook.got[hook.got.size() - 2].find("begins"), last.npos);
    }
    EXPECT_NE(hooks.back().got.front().find("Authorization: Basic am9lOmE6Yg==\r\n"),
              std::string::npos)
        << hooks.back().got.front();
    const auto tells = [&](const std::string& of, const std::string& what) {
        const std::string origin = of.substr(0, of.find('/', std::string("http://").size()));
        EXPECT_NE(lines.kept.all.find("alarms: the webhook " + origin + what + "\n"),
                  std::string::npos)
            << what << '\n'
            << lines.kept.all;
    };
    const auto& urls = settings.alarms.webhooks;
    tells(urls[2], ": it answers with 429; again in 2 s");
    tells(urls[4], ": it answers with 302; dropped: audit of CANB begins");
    tells(urls[5], ": it answers with 404; dropped: audit of CANB begins");
    EXPECT_EQ(lines.kept.all.find("joe"), std::string::npos);

    settings.alarms.webhooks = {urls.begin() + 1, urls.end()};
    notifier.apply(settings);
    tells("http://127.0.0.1:1", " is called no longer; alarms that waited and are dropped: 2");
    notifier.tell(alarmOf("SYDN"));
    EXPECT_TRUE(becomes(context, [&] { return hooks.back().got.size() == 3; }));
    end(context, notifier);
}

TEST(Webhook, ThatIsDownHoldsUpNothingAndDropsTheOldest) {
    const Lines lines;
    asio::io_context context;
    Settings settings;
    settings.alarms.webhooks = {"http://127.0.0.1:1/"};
    Notifier notifier(context.get_executor());
    notifier.apply(settings);
    for (int i = 0; i < 10'500; ++i)
        notifier.tell(alarmOf("S" + std::to_string(i)));
    EXPECT_TRUE(
        becomes(context, [&] { return lines.kept.all.find("again in") != std::string::npos; }));
    const std::size_t dropped =
        lines.kept.all.find("of 10000 alarms that wait the oldest are dropped");
    EXPECT_NE(dropped, std::string::npos) << lines.kept.all;
    EXPECT_EQ(lines.kept.all.find("dropped", dropped + 50), std::string::npos) << "told once";
    end(context, notifier);
}

TEST(AlarmCommand, GetsItsArgumentsAsTheyAre) {
    const Lines lines;
    asio::io_context context;
    const fs::path folder = fs::path(testing::TempDir()) / ("alarms" + std::to_string(getpid()));
    fs::create_directories(folder);
    const fs::path command = folder / "a command", out = folder / "out";
    std::ofstream(command) << "#!/bin/sh\nprintf '%s|' \"$@\" >>'" << out.string()
                           << "'\nenv | grep -c . >>'" << out.string()
                           << "'\necho '<4>not sent' >&2\nexit 7\n";
    fs::permissions(command, fs::perms::owner_all);
    Settings settings;
    settings.alarms.command = command;
    Notifier notifier(context.get_executor());
    notifier.apply(settings);
    const std::string hostile = "$(touch pwned) `id`; \"'*\n-rf --help";
    notifier.tell(alarmOf("CANB", hostile));
    notifier.tell(ended({AlarmKind::disk, "", "full", 0.0}));
    EXPECT_TRUE(becomes(context, [&] { return readFile(out).find("full") != std::string::npos; }));
    end(context, notifier);
    EXPECT_TRUE(readFile(out).starts_with("begins|audit|CANB|" + hostile + "|3\n")) // with PWD
        << readFile(out);
    EXPECT_NE(readFile(out).find("ends|disk|-|lasted 72 s; last: full|"), std::string::npos);
    EXPECT_NE(lines.kept.all.find(command.string() + ": not sent\n"), std::string::npos)
        << lines.kept.all;
    EXPECT_NE(lines.kept.all.find(command.string() + ": ended with status 7\n"), std::string::npos);
    fs::remove_all(folder);
}

TEST(Child, EndsWithAllThatItHasStarted) {
    asio::io_context context;
    const fs::path pids = fs::path(testing::TempDir()) / ("child" + std::to_string(getpid()));
    const std::string script = "trap '' TERM; sleep 300 & echo $! >'" + pids.string() +
                               "'; echo . >>'" + pids.string() + "'; wait; sleep 300";
    const auto ignore = [](Level, const std::string&) {};
    auto child = std::make_unique<gateway::Child>(context.get_executor(), "/bin/sh",
                                                  std::vector<std::string>{"-c", script}, ignore);
    ASSERT_TRUE(becomes(context, [&] { return readFile(pids).find('.') != std::string::npos; }));
    const int grandchild = std::stoi(readFile(pids));
    fs::remove(pids);
    EXPECT_EQ(kill(grandchild, 0), 0);
    child.reset();
    const auto gone = [&] { // or nobody's who reaps it
        return readFile("/proc/" + std::to_string(grandchild) + "/cmdline").empty();
    };
    EXPECT_TRUE(becomes(context, gone));
}
