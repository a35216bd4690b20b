#include "gateway/net/Channel.h"

#include "gateway/net/Lookup.h"

#include <boost/asio/buffer.hpp>
#include <boost/asio/connect.hpp>
#include <boost/asio/redirect_error.hpp>
#include <boost/asio/serial_port.hpp>
#include <boost/asio/ssl/stream.hpp>
#include <boost/asio/write.hpp>
#include <boost/beast/core/flat_buffer.hpp>
#include <boost/beast/http.hpp>

#include <openssl/err.h>
#include <openssl/ssl.h>
#include <openssl/x509v3.h>

#include <algorithm>
#include <iterator>
#include <linux/sockios.h>
#include <netinet/tcp.h>
#include <sys/ioctl.h>
#include <sys/socket.h>

namespace gateway {

namespace ssl = asio::ssl;
using boost::system::error_code;
using boost::system::system_error;

namespace {

constexpr int kListenTries = 20;
constexpr Duration kListenPause = std::chrono::milliseconds(50);
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

/// In the words of an operator what OpenSSL says shortest.
struct TlsReason {
    long code;
    const char* text;
};
constexpr TlsReason kCertificateFaults[] = {
    {X509_V_ERR_CERT_HAS_EXPIRED, "it has expired"},
    {X509_V_ERR_CERT_NOT_YET_VALID, "it is not valid yet: is this machine's clock right?"},
    {X509_V_ERR_HOSTNAME_MISMATCH, "it is one for another name"},
    {X509_V_ERR_IP_ADDRESS_MISMATCH, "it is not one for this address: write the name of the host"},
    {X509_V_ERR_DEPTH_ZERO_SELF_SIGNED_CERT, "it is self-signed"},
    {X509_V_ERR_SELF_SIGNED_CERT_IN_CHAIN, "it is of an authority that this machine does not know"},
    {X509_V_ERR_UNABLE_TO_GET_ISSUER_CERT_LOCALLY,
     "it is of an authority that this machine does not know"},
    {X509_V_ERR_UNABLE_TO_VERIFY_LEAF_SIGNATURE,
     "it is of an authority that this machine does not know"},
};
constexpr TlsReason kHandshakeFaults[] = {
    {SSL_R_WRONG_VERSION_NUMBER, "no TLS is spoken on the other side"},
    {SSL_R_HTTP_REQUEST, "no TLS is spoken on the other side"},
    {SSL_R_HTTPS_PROXY_REQUEST, "no TLS is spoken on the other side"},
    {SSL_R_UNSUPPORTED_PROTOCOL, "the other side knows no TLS of version 1.2 or later"},
    {SSL_R_TLSV1_ALERT_PROTOCOL_VERSION, "the other side knows no TLS of version 1.2 or later"},
    {SSL_R_NO_SHARED_CIPHER, "the other side knows none of our ciphers"},
};
template <std::size_t n> const char* textOf(const TlsReason (&all)[n], long code) {
    const auto* const found = std::ranges::find(all, code, &TlsReason::code);
    return found == std::end(all) ? nullptr : found->text;
}

/// Why a handshake failed.
std::string reasonOf(const error_code& e, const SSL* tls) {
    if (ends(e) || e == asio::error::connection_reset)
        return "the other side has ended the connection in the TLS handshake";
    const auto code = static_cast<unsigned long>(e.value());
    if (e.category() != asio::error::get_ssl_category() || ERR_GET_LIB(code) != ERR_LIB_SSL)
        return e.message();
    const int reason = ERR_GET_REASON(code);
    if (reason == SSL_R_CERTIFICATE_VERIFY_FAILED) {
        const long fault = SSL_get_verify_result(tls);
        const char* const text = textOf(kCertificateFaults, fault);
        return std::string("the certificate is not accepted: ") +
               (text ? text : X509_verify_cert_error_string(fault));
    }
    if (const char* const text = textOf(kHandshakeFaults, reason))
        return text;
    if (reason > SSL_AD_REASON_OFFSET) // an alert that came
        return std::string("the other side refuses: ") +
               SSL_alert_desc_string_long(reason - SSL_AD_REASON_OFFSET);
    return e.message();
}

awaitable<void> shakeHands(ssl::stream<tcp::socket>& stream, ssl::stream_base::handshake_type as) {
    error_code e;
    co_await stream.async_handshake(as, asio::redirect_error(use_awaitable, e));
    if (e)
        throw TlsError(reasonOf(e, stream.native_handle()));
}

std::string peerOf(const tcp::socket& socket) {
    error_code gone;
    const tcp::endpoint peer = socket.remote_endpoint(gone);
    return gone ? "a peer that is gone" : shown(peer);
}

std::string noAnswer(const HostPort& host) {
    return "no answer from " + shown(host);
}

/// The certificate must be one for the name, or for the address.
void expectCertificateOf(const std::string& host, SSL* tls) {
    error_code named;
    asio::ip::make_address(host, named);
    X509_VERIFY_PARAM* const terms = SSL_get0_param(tls);
    X509_VERIFY_PARAM_set_hostflags(terms, X509_CHECK_FLAG_NO_PARTIAL_WILDCARDS);
    const bool taken = named ? X509_VERIFY_PARAM_set1_host(terms, host.c_str(), host.size()) == 1 &&
                                   SSL_set_tlsext_host_name(tls, host.c_str()) == 1
                             : X509_VERIFY_PARAM_set1_ip_asc(terms, host.c_str()) == 1;
    if (!taken)
        throw TlsError("the certificate cannot be examined: " + host + " is no name of a host");
}

awaitable<ChannelPtr> connectTls(HostPort host, std::optional<HostPort> proxy, Duration limit) {
    const Instant end = std::chrono::steady_clock::now() + limit;
    ssl::context context(ssl::context::tls_client);
    SSL_CTX_set_min_proto_version(context.native_handle(), TLS1_2_VERSION);
    context.set_default_verify_paths();
    context.set_verify_mode(ssl::verify_peer);
    tcp::socket socket = co_await within(limit, connectBy(host, proxy), noAnswer(host));
    const std::string peer = peerOf(socket);
    ssl::stream<tcp::socket> stream(std::move(socket), context);
    expectCertificateOf(host.host, stream.native_handle());
    co_await within(end - std::chrono::steady_clock::now(),
                    shakeHands(stream, ssl::stream_base::client),
                    "no TLS handshake: is TLS spoken at " + shown(host) + "?");
    co_return std::make_unique<StreamChannel<ssl::stream<tcp::socket>>>(std::move(stream), peer);
}

awaitable<ChannelPtr> connectPlain(HostPort host, std::optional<HostPort> proxy) {
    co_return channelOf(co_await connectBy(host, proxy));
}

} // namespace

awaitable<tcp::acceptor> listenOn(HostPort at) {
    const auto executor = co_await asio::this_coro::executor;
    const tcp::endpoint endpoint = endpointOf(at);
    for (int tries = 1;; ++tries) {
        try {
            co_return tcp::acceptor(executor, endpoint);
        } catch (const boost::system::system_error& e) {
            if (e.code() != asio::error::address_in_use || tries == kListenTries)
                throw;
        }
        co_await pause(kListenPause);
    }
}

tcp::endpoint endpointOf(const HostPort& at) {
    return {asio::ip::make_address(at.host), at.port};
}

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
    co_await within(limit, shakeHands(stream, ssl::stream_base::server), "no TLS handshake");
    co_return std::make_unique<StreamChannel<ssl::stream<tcp::socket>>>(std::move(stream), peer);
}

awaitable<ChannelPtr> connectTo(const HostPort& host, const std::optional<HostPort>& proxy,
                                Duration limit) {
    return within(limit, connectPlain(host, proxy), noAnswer(host));
}

awaitable<ChannelPtr> connectTlsTo(const HostPort& host, const std::optional<HostPort>& proxy,
                                   Duration limit) {
    return connectTls(host, proxy, limit);
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
