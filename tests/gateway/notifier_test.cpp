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
    return {AlarmKind::moved, station, text, 1.5};
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

TEST(Webhook, IsCalledAgainUntilItTakesWhatComesInOrder) {
    const Lines lines;
    asio::io_context context;
    const std::vector<std::string> bad[] = {
        {"HTTP/1.1 500 Internal Server Error\r\n\r\n", "nonsense\r\n\r\n"},
        {"HTTP/1.1 302 Found\r\nLocation: http://127.0.0.1:1/\r\n\r\n"},
        {"endless"},
        {"HTTP/1.1 401 Unauthorized\r\n\r\n"}};
    std::list<Hook> hooks;
    std::list<Notifier> notifiers;
    for (const auto& answers : bad) {
        const Hook& hook = hooks.emplace_back(context, answers);
        AlarmSettings settings;
        settings.webhook = hook.url(hooks.size() == 4 ? "joe:a%3Ab@" : "");
        Notifier& notifier = notifiers.emplace_back(context.get_executor());
        notifier.apply(settings);
        notifier.tell(alarmOf("CANB"), /*begins=*/true);
        notifier.tell(alarmOf("CANB"), /*begins=*/false);
    }
    EXPECT_TRUE(becomes(context, [&] {
        auto answers = std::begin(bad);
        return std::ranges::all_of(
            hooks, [&](const Hook& h) { return h.got.size() == (answers++)->size() + 2; });
    }));
    for (const Hook& hook : hooks) {
        const std::string& last = hook.got.back();
        EXPECT_TRUE(last.starts_with("POST /alarms?a=b HTTP/1.1\r\n")) << last;
        const auto json = nlohmann::json::parse(last.substr(last.find('{')));
        EXPECT_EQ(json["state"], "ends");
        EXPECT_EQ(json["kind"], "moved");
        EXPECT_EQ(json["station"], "CANB");
        EXPECT_EQ(json["text"], "rovers get nothing");
        EXPECT_NE(hook.got[hook.got.size() - 2].find("begins"), last.npos);
    }
    EXPECT_NE(hooks.back().got.front().find("Authorization: Basic am9lOmE6Yg==\r\n"),
              std::string::npos)
        << hooks.back().got.front();
    EXPECT_NE(lines.kept.all.find("alarms: the webhook: it answers with 302; again in 2 s"),
              std::string::npos)
        << lines.kept.all;
    for (Notifier& notifier : notifiers)
        end(context, notifier);
}

TEST(Webhook, ThatIsDownHoldsUpNothingAndDropsTheOldest) {
    const Lines lines;
    asio::io_context context;
    AlarmSettings settings;
    settings.webhook = "http://127.0.0.1:1/";
    Notifier notifier(context.get_executor());
    notifier.apply(settings);
    for (int i = 0; i < 10'500; ++i)
        notifier.tell(alarmOf("S" + std::to_string(i)), /*begins=*/true);
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
    AlarmSettings settings;
    settings.command = command;
    Notifier notifier(context.get_executor());
    notifier.apply(settings);
    const std::string hostile = "$(touch pwned) `id`; \"'*\n-rf --help";
    notifier.tell(alarmOf("CANB", hostile), /*begins=*/true);
    notifier.tell({AlarmKind::disk, "", "full", 0.0}, /*begins=*/false);
    EXPECT_TRUE(becomes(context, [&] { return readFile(out).find("full") != std::string::npos; }));
    end(context, notifier);
    EXPECT_TRUE(readFile(out).starts_with("begins|moved|CANB|" + hostile + "|3\n")) // with PWD
        << readFile(out);
    EXPECT_NE(readFile(out).find("ends|disk|-|full|"), std::string::npos);
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
