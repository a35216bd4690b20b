#pragma once

#include "gateway/net/Address.h"
#include "gateway/net/Within.h"

#include <boost/asio/ip/tcp.hpp>

/// Lookup: the addresses of a name, as the system knows them at this moment.

namespace gateway {

/// Several names are looked up at once: a name server that is silent for some does not hold up the
/// others. boost::system::system_error where there is no such name.
awaitable<asio::ip::tcp::resolver::results_type> lookUp(HostPort host);

} // namespace gateway
