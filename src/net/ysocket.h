#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>

/// ysocket: the TCP socket of the service. Hosts are dotted IPv4 texts, ports are in host order;
/// results are -1 on failure, with errno. One descriptor serves every connection of the process.

/// Nothing to prepare on this platform; 0.
int init_socket();
/// Socket of the domain and type; the protocol is always the type's own.
int socket_new(int domain, int type, int protocol);
/// IPv4 stream socket that notices a vanished peer (keep-alive, user time-out).
int socket_new_tcp();
/// Dissolves what the descriptor was connected to, then connects, however long the answer takes;
/// prints the outcome. 0 or -1.
int socket_connect(int fd, const char* host, std::uint32_t port);
/// Connects within that many seconds; 0 or -1. Time-out: the descriptor is closed. Refused at
/// once: it stays non-blocking. A refusal that comes later counts as connected; socket_isconnection
/// tells.
int socket_connect_timeout(int fd, const char* host, std::uint32_t port, int seconds);
/// Ends the connection at once; the descriptor can be connected again.
void socket_disconnect(int fd);
/// 0 when the connection is established, else -1.
int socket_isconnection(int fd);
/// Waits until a receive would return at once; false where the limit passes first.
bool socket_wait(int fd, std::chrono::milliseconds limit);
/// One receive: bytes, 0 at the end of the stream, or -1.
int socket_recv(int fd, std::span<std::uint8_t> buffer);
/// The same: there is no time limit.
int socket_recv_timeout(int fd, std::span<std::uint8_t> buffer);
/// Sends; when the peer does not take it all in time, the connection is dissolved, so that it never
/// sees half a frame followed by another. Bytes sent, or -1 with errno. Printed lines get out
/// before it has to wait.
int socket_send(int fd, std::span<const std::uint8_t> bytes);
/// Sends what fits at once: bytes sent, or -1. The connection stays as it is.
int socket_send_now(int fd, std::string_view text);
/// What the kernel knows of a connection.
struct ConnectionState {
    bool established = false;
    /// Bytes of earlier sends that are still waiting here, on their way nowhere yet; those that
    /// were sent and are not acknowledged do not count. 0 where the kernel cannot tell.
    std::uint32_t unsent = 0;
};
ConnectionState socket_state(int fd);
/// Whether the descriptor is a socket that carries bytes, not datagrams.
bool socket_isstream(int fd);
int closesocket(int fd);
/// Text of errno; empty when it is 0.
std::string socket_get_last_err();
