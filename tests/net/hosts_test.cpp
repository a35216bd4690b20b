#include "common/check.h"
#include "net/hosts.h"
#include "net/ysocket.h"

#include <arpa/inet.h>
#include <array>
#include <cerrno>
#include <fcntl.h>
#include <netdb.h>
#include <sys/resource.h>
#include <sys/socket.h>

namespace {

bool blocking(int fd) {
    return (fcntl(fd, F_GETFL) & O_NONBLOCK) == 0;
}

/// A listener on loopback that takes in one connection and no more.
struct Narrow {
    int fd = socket_new_tcp();
    sockaddr_in address{AF_INET, 0, {htonl(INADDR_LOOPBACK)}, {}};
    Narrow() {
        socklen_t length = sizeof address;
        auto* const any = reinterpret_cast<sockaddr*>(&address);
        EXPECT_TRUE(!bind(fd, any, length) && !listen(fd, 0) && !getsockname(fd, any, &length));
    }
    ~Narrow() { closesocket(fd); }
    int connect(int client, int seconds) const {
        return socket_connect_timeout(client, "127.0.0.1", ntohs(address.sin_port), seconds);
    }
};

TEST(ConnectWithATimeLimit, IsBlockingAgainOnceItIsThere) {
    const Narrow listener;
    const int client = socket_new(AF_INET, SOCK_STREAM, IPPROTO_UDP); // the protocol is not asked
    ASSERT_GE(client, 0);
    EXPECT_EQ(listener.connect(client, 20), 0);
    EXPECT_TRUE(socket_isconnection(client) == 0 && blocking(client));
    EXPECT_EQ(listener.connect(client, 20), 0); // connected already
    const int peer = accept(listener.fd, nullptr, nullptr);
    EXPECT_EQ(send(peer, "abc", 3, 0), 3);
    std::vector<std::uint8_t> buffer(10);
    EXPECT_EQ(socket_recv_timeout(client, buffer), 3);
    EXPECT_EQ(buffer[2], 'c');
    for (const int fd : {peer, client})
        closesocket(fd);
}

TEST(ConnectWithATimeLimit, ClosesTheDescriptorWhenNobodyAnswers) {
    const Narrow listener;
    std::vector<int> waiting;
    for (int i = 0; i < 4; ++i) { // fill the queue: whoever comes then is not answered
        waiting.push_back(socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK, 0));
        static_cast<void>(connect(waiting.back(),
                                  reinterpret_cast<const sockaddr*>(&listener.address),
                                  sizeof listener.address));
    }
    const int client = socket_new_tcp();
    EXPECT_EQ(listener.connect(client, 0), -1);
    EXPECT_EQ(socket_get_last_err(), "Connection timed out");
    EXPECT_EQ(fcntl(client, F_GETFL), -1);
    // Deliberate: select refuses a negative limit, and its error counts as connected.
    const int unanswered = socket_new_tcp();
    EXPECT_EQ(listener.connect(unanswered, -1), 0);
    EXPECT_TRUE(socket_isconnection(unanswered) == -1 && blocking(unanswered));
    waiting.push_back(unanswered);
    for (const int fd : waiting)
        closesocket(fd);
}

TEST(ConnectWithATimeLimit, LeavesARefusedDescriptorNonBlocking) { // deliberate
    const int client = socket_new_tcp();
    EXPECT_EQ(socket_connect_timeout(client, "localhost", 1, 20), -1); // a name is not looked up
    EXPECT_FALSE(blocking(client));
    closesocket(client);
}

TEST(ConnectWithATimeLimit, RefusesDescriptorsBeyondTheSet) {
    rlimit limit{};
    getrlimit(RLIMIT_NOFILE, &limit);
    if (limit.rlim_max <= FD_SETSIZE)
        GTEST_SKIP() << "no descriptors that high";
    const rlimit before = limit;
    limit.rlim_cur = limit.rlim_max;
    setrlimit(RLIMIT_NOFILE, &limit);
    const int client = socket_new_tcp();
    const int high = fcntl(client, F_DUPFD, FD_SETSIZE);
    ASSERT_GE(high, FD_SETSIZE);
    const Narrow listener;
    for (const int fd : {-1, high}) {
        errno = 0;
        EXPECT_EQ(listener.connect(fd, 20), -1);
        EXPECT_EQ(socket_get_last_err(), "Bad file descriptor");
    }
    EXPECT_TRUE(blocking(high));
    for (const int fd : {client, high})
        closesocket(fd);
    setrlimit(RLIMIT_NOFILE, &before);
}

TEST(HostName, IsTheLastOfItsAddresses) {
    std::string out;
    EXPECT_EQ(getHostByName("192.0.2.17", out), 10);
    EXPECT_EQ(out, "192.0.2.17");
    EXPECT_EQ(getHostByName("localhost", out), 9);
    EXPECT_EQ(out.substr(0, 4), "127.");
    out = "kept";
    EXPECT_EQ(getHostByName("a name with blanks", out), -1);
    EXPECT_EQ(out, "kept");

    // Deliberate: of several addresses the last.
    in_addr first{inet_addr("192.0.2.1")}, last{inet_addr("203.0.113.255")};
    std::array<char*, 3> list{reinterpret_cast<char*>(&first), reinterpret_cast<char*>(&last),
                              nullptr};
    hostent host{};
    host.h_addr_list = list.data();
    host.h_addrtype = AF_INET;
    EXPECT_EQ(lastAddress(host, out), 13);
    EXPECT_EQ(out, "203.0.113.255");
    in6_addr longest{};
    std::fill(std::begin(longest.s6_addr), std::end(longest.s6_addr), std::uint8_t{0xab});
    list = {reinterpret_cast<char*>(&longest), nullptr, nullptr};
    host.h_addrtype = AF_INET6;
    EXPECT_EQ(lastAddress(host, out), 39);
    EXPECT_EQ(out, "abab:abab:abab:abab:abab:abab:abab:abab");
    host.h_addrtype = AF_UNIX;
    testing::internal::CaptureStdout();
    EXPECT_EQ(lastAddress(host, out), -1);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "unknown address type\n");
}

TEST(LastError, IsEmptyWithoutOne) {
    errno = 0;
    EXPECT_EQ(socket_get_last_err(), "");
    EXPECT_EQ(init_socket(), 0);
}

} // namespace
