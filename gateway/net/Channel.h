#pragma once

#include "gateway/net/Address.h"
#include "gateway/net/Within.h"

#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/ssl/context.hpp>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <stdexcept>
#include <string>
#include <string_view>

/// Channel: a stream of bytes to a peer, whatever carries it. Errors are
/// boost::system::system_error; where no TLS comes about, TlsError.

namespace gateway {

using asio::ip::tcp;

/// Why the two sides do not agree on TLS; what() for the operator.
class TlsError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

class Channel {
public:
    virtual ~Channel() = default;
    Channel() = default;
    Channel(const Channel&) = delete;
    Channel& operator=(const Channel&) = delete;

    /// At least one byte; 0 when the peer has ended the stream.
    virtual awaitable<std::size_t> read(std::span<std::uint8_t> into) = 0;
    /// All of them.
    virtual awaitable<void> write(std::span<const std::uint8_t> bytes) = 0;
    /// After the peer has ended its side, and may read on: until the connection is broken. Returns
    /// at once where no side can end alone (TLS, a serial line).
    virtual awaitable<void> untilBroken() = 0;
    /// Ends whatever waits; no error.
    virtual void close() = 0;
    /// Bytes written that the peer has not acknowledged; 0 where nobody can tell.
    virtual std::size_t unacknowledged() = 0;
    /// "192.0.2.7:2101", "/dev/ttyUSB0".
    virtual std::string peer() const = 0;
    /// Our end of a connection; no port where it is none.
    virtual HostPort local() const = 0;
};
using ChannelPtr = std::unique_ptr<Channel>;

/// Of a connection; waiting data is lost after 20 s without an acknowledgement.
ChannelPtr channelOf(tcp::socket socket);
/// The server's side of TLS on a connection, within the limit.
awaitable<ChannelPtr> acceptTls(tcp::socket socket, asio::ssl::context& context, Duration limit);

/// Listens on an address. Where it is taken, for another second: by a station that ends.
awaitable<tcp::acceptor> listenOn(HostPort at);
/// Connects to every address of a host in turn, by way of a proxy (HTTP CONNECT) where one is
/// given. The name is resolved now. The limit is for all of it.
awaitable<ChannelPtr> connectTo(const HostPort& host, const std::optional<HostPort>& proxy,
                                Duration limit);
/// The same with TLS; the certificate must be one for the host, of an authority that this machine
/// knows.
awaitable<ChannelPtr> connectTlsTo(const HostPort& host, const std::optional<HostPort>& proxy,
                                   Duration limit);
/// A serial line, 8N1 without handshake.
ChannelPtr openSerial(const asio::any_io_executor& executor, const std::string& device,
                      unsigned baud);

/// Of a numeric address.
tcp::endpoint endpointOf(const HostPort& at);
/// The address of an endpoint; an IPv4 address that came by an IPv6 socket is one.
asio::ip::address addressOf(const tcp::endpoint& endpoint);
/// "192.0.2.7:2101", "[2001:db8::1]:2101".
std::string shown(const tcp::endpoint& endpoint);

inline std::span<const std::uint8_t> bytesOf(std::string_view text) {
    return {reinterpret_cast<const std::uint8_t*>(text.data()), text.size()};
}
inline std::string_view textOf(std::span<const std::uint8_t> bytes) {
    return {reinterpret_cast<const char*>(bytes.data()), bytes.size()};
}

} // namespace gateway
