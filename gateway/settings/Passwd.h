#pragma once

#include "gateway/net/Secret.h"

#include <filesystem>
#include <iosfwd>
#include <string>

/// Passwd: `kestrune-gateway passwd FILE NAME`.

namespace gateway {

/// A yescrypt hash with a salt of its own.
std::string hashOf(const Secret& password);
/// Gives a user the hash; the other lines of the file stay as they are. A file that is not there is
/// made. Throws std::runtime_error.
void writeUser(const std::filesystem::path& file, const std::string& name, const std::string& hash);
/// Asks for a password twice on a terminal, without showing it; from anything else one line is
/// read. The exit status: 0; 1 where the file was not written; 2 for a name that no user can have.
int runPasswd(const std::filesystem::path& file, const std::string& name, int input,
              std::ostream& out);

} // namespace gateway
