#include "gateway/net/Channel.h"

#include "gateway/net/Lookup.h"

#include <boost/asio/buffer.hpp>
#include <boost/asio/connect.hpp>
#include <boost/asio/redirect_error.hpp>
#include <boost/asio/serial_port.hpp>
#include <boost/asio/ssl/host_name_verification.hpp>
#include <boost/asio/ssl/stream.hpp>
#include <boost/asio/write.hpp>
#include <boost/beast/core/flat_buffer.hpp>
#include <boost/beast/http.hpp>

#include <linux/sockios.h>
#include <netinet/tcp.h>
#include <sys/ioctl.h>
#include <sys/socket.h>

namespace gateway {

namespace ssl = asio::ssl;
using boost::system::error_code;
using boost::system::system_error;

namespace {

constexpr int kUnacknowledgedMs = 20'000;
constexpr int kKeepAliveS[] = {10, 5, 3}; // first probe, between two, probes

bool ends(const error_code& e) {
    return e == asio::error::eof || e == ssl::error::stream_truncated;
}

template <int level, int name> void setOption(tcp::socket& socket, int value) {
    error_code none; // an option that this kernel lacks
    socket.set_option(asio::detail::socket_option::integer<level, name>(value), none);
}

/// A peer that is gone is noticed also while nothing is sent to it.
void watchPeer(tcp::socket& socket) {
    socket.set_option(tcp::no_delay(true));
    socket.set_option(asio::socket_base::keep_alive(true));
    setOption<IPPROTO_TCP, TCP_KEEPIDLE>(socket, kKeepAliveS[0]);
    setOption<IPPROTO_TCP, TCP_KEEPINTVL>(socket, kKeepAliveS[1]);
    setOption<IPPROTO_TCP, TCP_KEEPCNT>(socket, kKeepAliveS[2]);
    setOption<IPPROTO_TCP, TCP_USER_TIMEOUT>(socket, kUnacknowledgedMs);
}

std::size_t outQueue(int fd) {
    int bytes = 0;
    return ioctl(fd, SIOCOUTQ, &bytes) == 0 && bytes > 0 ? static_cast<std::size_t>(bytes) : 0;
}

template <class Stream> class StreamChannel final : public Channel {
public:
    StreamChannel(Stream stream, std::string peer)
        : stream_(std::move(stream)), peer_(std::move(peer)) {}

    awaitable<std::size_t> read(std::span<std::uint8_t> into) override {
        error_code e;
        const std::size_t n = co_await stream_.async_read_some(
            asio::buffer(into.data(), into.size()), asio::redirect_error(use_awaitable, e));
        if (e && !ends(e))
            throw system_error(e);
        co_return n;
    }
    awaitable<void> write(std::span<const std::uint8_t> bytes) override {
        co_await asio::async_write(stream_, asio::buffer(bytes.data(), bytes.size()),
                                   use_awaitable);
    }
    awaitable<void> untilBroken() override {
        if constexpr (std::is_same_v<Stream, tcp::socket>) {
            error_code none;
            co_await stream_.async_wait(tcp::socket::wait_error,
                                        asio::redirect_error(use_awaitable, none));
        }
        co_return;
    }
    void close() override {
        error_code none;
        stream_.lowest_layer().close(none);
    }
    std::size_t unacknowledged() override {
        if constexpr (std::is_same_v<Stream, asio::serial_port>)
            return 0;
        else
            return outQueue(stream_.lowest_layer().native_handle());
    }
    std::string peer() const override { return peer_; }
    HostPort local() const override {
        if constexpr (std::is_same_v<Stream, asio::serial_port>) {
            return {};
        } else {
            error_code gone;
            const tcp::endpoint end = stream_.lowest_layer().local_endpoint(gone);
            return {addressOf(end).to_string(), end.port()};
        }
    }

private:
    Stream stream_;
    std::string peer_;
};

awaitable<tcp::socket> connectAny(HostPort host) {
    const auto executor = co_await asio::this_coro::executor;
    tcp::socket socket(executor);
    error_code named;
    const asio::ip::address address = asio::ip::make_address(host.host, named);
    if (!named) {
        co_await socket.async_connect({address, host.port}, use_awaitable);
        co_return socket;
    }
    const auto addresses = co_await lookUp(host);
    co_await asio::async_connect(socket, addresses, use_awaitable);
    co_return socket;
}

/// RFC 9110, 9.3.6. Nothing of the peer comes before it is spoken to.
awaitable<void> askProxy(tcp::socket& socket, HostPort host) {
    namespace http = boost::beast::http;
    const std::string where = shown(host);
    http::request<http::empty_body> request(http::verb::connect, where, 11);
    request.set(http::field::host, where);
    co_await http::async_write(socket, request, use_awaitable);
    http::response_parser<http::empty_body> answer;
    answer.skip(true);
    boost::beast::flat_buffer buffer(8192);
    co_await http::async_read_header(socket, buffer, answer, use_awaitable);
    if (http::to_status_class(answer.get().result()) != http::status_class::successful)
        throw std::runtime_error("the proxy refuses: " + std::to_string(answer.get().result_int()));
}

awaitable<tcp::socket> connectBy(HostPort host, std::optional<HostPort> proxy) {
    tcp::socket socket = co_await connectAny(proxy ? *proxy : host);
    watchPeer(socket);
    if (proxy)
        co_await askProxy(socket, host);
    co_return socket;
}

std::string peerOf(const tcp::socket& socket) {
    error_code gone;
    const tcp::endpoint peer = socket.remote_endpoint(gone);
    return gone ? "a peer that is gone" : shown(peer);
}

awaitable<ChannelPtr> connectTls(HostPort host, std::optional<HostPort> proxy) {
    ssl::context context(ssl::context::tls_client);
    SSL_CTX_set_min_proto_version(context.native_handle(), TLS1_2_VERSION);
    context.set_default_verify_paths();
    context.set_verify_mode(ssl::verify_peer);
    tcp::socket socket = co_await connectBy(host, proxy);
    const std::string peer = peerOf(socket);
    ssl::stream<tcp::socket> stream(std::move(socket), context);
    stream.set_verify_callback(ssl::host_name_verification(host.host));
    SSL_set_tlsext_host_name(stream.native_handle(), host.host.c_str());
    co_await stream.async_handshake(ssl::stream_base::client, use_awaitable);
    co_return std::make_unique<StreamChannel<ssl::stream<tcp::socket>>>(std::move(stream), peer);
}

awaitable<ChannelPtr> connectPlain(HostPort host, std::optional<HostPort> proxy) {
    co_return channelOf(co_await connectBy(host, proxy));
}

std::string noAnswer(const HostPort& host) {
    return "no answer from " + shown(host);
}

} // namespace

asio::ip::address addressOf(const tcp::endpoint& endpoint) {
    asio::ip::address address = endpoint.address();
    if (address.is_v6() && address.to_v6().is_v4_mapped())
        return asio::ip::make_address_v4(asio::ip::v4_mapped, address.to_v6());
    return address;
}

std::string shown(const tcp::endpoint& endpoint) {
    return shown(HostPort{addressOf(endpoint).to_string(), endpoint.port()});
}

ChannelPtr channelOf(tcp::socket socket) {
    watchPeer(socket);
    std::string peer = peerOf(socket);
    return std::make_unique<StreamChannel<tcp::socket>>(std::move(socket), std::move(peer));
}

awaitable<ChannelPtr> acceptTls(tcp::socket socket, ssl::context& context, Duration limit) {
    watchPeer(socket);
    const std::string peer = peerOf(socket);
    ssl::stream<tcp::socket> stream(std::move(socket), context);
    co_await within(limit, stream.async_handshake(ssl::stream_base::server, use_awaitable),
                    "no TLS handshake");
    co_return std::make_unique<StreamChannel<ssl::stream<tcp::socket>>>(std::move(stream), peer);
}

awaitable<ChannelPtr> connectTo(const HostPort& host, const std::optional<HostPort>& proxy,
                                Duration limit) {
    return within(limit, connectPlain(host, proxy), noAnswer(host));
}

awaitable<ChannelPtr> connectTlsTo(const HostPort& host, const std::optional<HostPort>& proxy,
                                   Duration limit) {
    return within(limit, connectTls(host, proxy), noAnswer(host));
}

ChannelPtr openSerial(const asio::any_io_executor& executor, const std::string& device,
                      unsigned baud) {
    asio::serial_port port(executor, device);
    port.set_option(asio::serial_port::baud_rate(baud));
    port.set_option(asio::serial_port::character_size(8));
    port.set_option(asio::serial_port::parity(asio::serial_port::parity::none));
    port.set_option(asio::serial_port::stop_bits(asio::serial_port::stop_bits::one));
    port.set_option(asio::serial_port::flow_control(asio::serial_port::flow_control::none));
    return std::make_unique<StreamChannel<asio::serial_port>>(std::move(port), device);
}

} // namespace gateway
