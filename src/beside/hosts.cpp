#include "beside/hosts.h"

#include "base/Print.h"

#include <arpa/inet.h>
#include <array>
#include <netdb.h>
#include <netinet/in.h>
#include <sys/socket.h>

int lastAddress(const hostent& host, std::string& out) {
    if (host.h_addrtype != AF_INET && host.h_addrtype != AF_INET6) {
        print(Level::warning, "unknown address type\n");
        return -1;
    }
    std::array<char, INET6_ADDRSTRLEN> shown{};
    // Deliberate: each address replaces the one before.
    for (char* const* address = host.h_addr_list; *address; ++address)
        static_cast<void>(inet_ntop(host.h_addrtype, *address, shown.data(), shown.size()));
    out = shown.data();
    return static_cast<int>(out.size());
}

int getHostByName(const std::string& name, std::string& out) {
    const hostent* const host = gethostbyname(name.c_str());
    return host ? lastAddress(*host, out) : -1;
}
