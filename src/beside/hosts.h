#pragma once

#include <string>

struct hostent;

/// hosts: the addresses that a name resolves to.

/// The last of the host's addresses (IPv4 or IPv6) as text; its length, or -1 with a line for an
/// address of another kind.
int lastAddress(const hostent& host, std::string& out);
/// Address of a host name as text, the last one of several; its length, or -1.
int getHostByName(const std::string& name, std::string& out);
