#include "beside/hosts.h"
#include "check.h"
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

/// A listener on loopback that takes in one connection and leaves the next unanswered.
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

TEST(ConnectWithATimeLimit, WorksOrClosesTheDescriptor) {
    const Narrow listener;
    const int client = socket_new(AF_INET, SOCK_STREAM, IPPROTO_UDP); // the protocol is not asked
    fcntl(client, F_SETFL, O_APPEND);
    for (int again = 0; again < 3; ++again) // the third meets EISCONN
        EXPECT_EQ(listener.connect(client, 20), 0);
    EXPECT_TRUE(socket_isconnection(client) == 0 && blocking(client));
    EXPECT_NE(fcntl(client, F_GETFL) & O_APPEND, 0);
    // Deliberate: select refuses a negative limit, and its error counts as connected.
    const int negative = socket_new_tcp();
    EXPECT_EQ(listener.connect(negative, -1), 0);
    EXPECT_TRUE(socket_isconnection(negative) == -1 && blocking(negative));
    const int late = socket_new_tcp();
    EXPECT_EQ(listener.connect(late, 0), -1);
    EXPECT_EQ(socket_get_last_err(), "Connection timed out");
    EXPECT_EQ(fcntl(late, F_GETFL), -1);
    errno = 0;
    EXPECT_EQ(socket_get_last_err(), "");

    const int refused = socket_new_tcp();
    EXPECT_EQ(socket_connect_timeout(refused, "localhost", 1, 20), -1); // a name is not looked up
    EXPECT_FALSE(blocking(refused));                                    // deliberate
    for (const int fd : {client, negative, refused})
        closesocket(fd);
}

TEST(ConnectWithATimeLimit, RefusesDescriptorsBeyondTheSet) {
    rlimit limit{};
    getrlimit(RLIMIT_NOFILE, &limit);
    const rlimit before = limit;
    limit.rlim_cur = limit.rlim_max;
    setrlimit(RLIMIT_NOFILE, &limit);
    const Narrow listener;
    const int high = fcntl(listener.fd, F_DUPFD, FD_SETSIZE); // -1 where none may be that high
    EXPECT_EQ(high >= FD_SETSIZE, limit.rlim_max > FD_SETSIZE);
    for (const int fd : {-1, high}) {
        EXPECT_EQ(listener.connect(fd, 20), -1);
        EXPECT_EQ(socket_get_last_err(), "Bad file descriptor");
    }
    closesocket(high);
    setrlimit(RLIMIT_NOFILE, &before);
}

TEST(HostName, IsTheLastOfItsAddresses) {
    std::string out;
    EXPECT_TRUE(getHostByName("192.0.2.17", out) == 10 && out == "192.0.2.17");
    EXPECT_TRUE(getHostByName("localhost", out) > 0 && out.starts_with("127."));
    EXPECT_EQ(getHostByName("a name with blanks", out), -1);
    in_addr first{inet_addr("192.0.2.1")}, last{inet_addr("203.0.113.255")};
    std::array<char*, 3> list{reinterpret_cast<char*>(&first), reinterpret_cast<char*>(&last)};
    hostent host{};
    host.h_addr_list = list.data();
    host.h_addrtype = AF_INET; // deliberate: of several the last
    EXPECT_TRUE(lastAddress(host, out) == 13 && out == "203.0.113.255") << out;
    host.h_addrtype = AF_UNIX;
    testing::internal::CaptureStdout();
    EXPECT_EQ(lastAddress(host, out), -1);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "unknown address type\n");
}

} // namespace
