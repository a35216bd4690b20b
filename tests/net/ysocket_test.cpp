#include "check.h"
#include "net/ysocket.h"

#include <arpa/inet.h>
#include <csignal>
#include <fcntl.h>
#include <netinet/tcp.h>
#include <sys/socket.h>

namespace {

using Bytes = std::vector<std::uint8_t>;

struct Listener {
    int fd = socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in address{AF_INET, 0, {htonl(INADDR_LOOPBACK)}, {}};
    Listener() {
        socklen_t length = sizeof address;
        auto* const any = reinterpret_cast<sockaddr*>(&address);
        EXPECT_TRUE(!bind(fd, any, length) && !listen(fd, 5) && !getsockname(fd, any, &length));
    }
    ~Listener() { close(fd); }
};

void expectConnect(int client, const char* host, in_port_t port, bool works) {
    testing::internal::CaptureStdout();
    EXPECT_EQ(socket_connect(client, host, ntohs(port)), works ? 0 : -1) << host;
    EXPECT_EQ(testing::internal::GetCapturedStdout(),
              works ? "ppppp:Success\n" : "ppppp:Unknown error -1\n");
    EXPECT_EQ(socket_isconnection(client), works ? 0 : -1) << host;
    EXPECT_EQ(fcntl(client, F_GETFL) & O_NONBLOCK, 0); // a send may wait
}

/// The peer's end of a new connection, over which three bytes have gone to the peer.
int meet(const Listener& listener, int client, std::uint8_t mark) {
    expectConnect(client, "127.0.0.1", listener.address.sin_port, true);
    const int peer = accept(listener.fd, nullptr, nullptr);
    EXPECT_EQ(socket_send(client, Bytes{1, 2, mark}), 3);
    Bytes got(3); // and nothing of an earlier connection
    EXPECT_TRUE(recv(peer, got.data(), 3, 0) == 3 && got[2] == mark);
    return peer;
}

TEST(Connection, NoticesAPeerThatVanishedOrStoppedReading) {
    const auto option = [](int fd, int level, int name) {
        int value = -1;
        socklen_t length = sizeof value;
        getsockopt(fd, level, name, &value, &length);
        return value;
    };
    Listener listener;
    const int client = socket_new_tcp();
    EXPECT_EQ(option(client, SOL_SOCKET, SO_KEEPALIVE), 1);
    EXPECT_EQ(option(client, IPPROTO_TCP, TCP_KEEPIDLE), 10);
    EXPECT_EQ(option(client, IPPROTO_TCP, TCP_KEEPINTVL), 5);
    EXPECT_EQ(option(client, IPPROTO_TCP, TCP_KEEPCNT), 3);
    EXPECT_EQ(option(client, IPPROTO_TCP, TCP_USER_TIMEOUT), 20000);
    EXPECT_EQ(option(client, IPPROTO_TCP, TCP_NODELAY), 1);
    timeval sendLimit{}; // the emulator of the 32-bit tests fills half of the seconds
    socklen_t length = sizeof sendLimit;
    getsockopt(client, SOL_SOCKET, SO_SNDTIMEO, &sendLimit, &length);
    EXPECT_EQ(sendLimit.tv_sec, 5);
    close(meet(listener, client, 3));
    closesocket(client);
}

TEST(Connection, IsMadeAgainOnTheSameDescriptorWhateverWasBefore) {
    std::signal(SIGPIPE, SIG_IGN);
    const int client = socket_new_tcp();
    EXPECT_EQ(socket_isconnection(client), -1);
    const in_port_t closed = Listener().address.sin_port;
    for (const char* host : {"127.0.0.1", "localhost", ""}) // a name is not looked up
        expectConnect(client, host, closed, false);
    const sockaddr_in own{AF_INET, closed, {htonl(INADDR_LOOPBACK)}, {}};
    const int mirror = socket_new_tcp();
    ASSERT_EQ(bind(mirror, reinterpret_cast<const sockaddr*>(&own), sizeof own), 0);
    expectConnect(mirror, "127.0.0.1", closed, false); // it would meet itself
    closesocket(mirror);
    const Listener listener;
    Bytes buffer(10);
    for (const char how : {'c', 'r', 'h', 'r', 'c'}) { // close, reset, half-close
        const int peer = meet(listener, client, static_cast<std::uint8_t>(how));
        const linger now{how == 'r', 0};
        setsockopt(peer, SOL_SOCKET, SO_LINGER, &now, sizeof now);
        how == 'h' ? shutdown(peer, SHUT_WR) : close(peer);
        EXPECT_EQ(socket_recv(client, buffer), how == 'r' ? -1 : 0) << how;
        EXPECT_EQ(socket_isconnection(client), -1) << how;
        EXPECT_TRUE(how != 'r' || socket_send(client, buffer) == -1); // and SIGPIPE ends nothing
        EXPECT_TRUE(how != 'h' || close(peer) == 0);
    }
    closesocket(client);
}

TEST(Connection, IsDissolvedWhenThePeerDoesNotTakeAFrameWhole) {
    const Listener listener;
    const int client = socket_new_tcp();
    const int stuck = meet(listener, client, 7);
    const int flags = fcntl(client, F_GETFL);
    fcntl(client, F_SETFL, flags | O_NONBLOCK); // instead of waiting for the send time limit
    const int sent = socket_send(client, Bytes(50'000'000));
    EXPECT_TRUE(sent > 0 && sent < 50'000'000 && socket_isconnection(client) == -1) << sent;
    fcntl(client, F_SETFL, flags);
    for (const int fd : {stuck, meet(listener, client, 8), client})
        close(fd);
}

} // namespace
