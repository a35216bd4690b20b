#include "fuzz/support.h"

#include "gateway/settings/CheckSettings.h"
#include "gateway/settings/Users.h"

#include <algorithm>
#include <sstream>

// The gateway's settings: the input is a file of them, and each line of it an address, a listener
// and the hash of a user. What is taken holds what its types say, and an address that is shown is
// the same one without its password; what is refused is refused with AddressError alone.

namespace {

using gateway::Address;
using gateway::AddressError;
using gateway::Use;

bool printable(std::string_view text) {
    return std::none_of(text.begin(), text.end(), [](char c) {
        const auto byte = static_cast<unsigned char>(c);
        return byte < 0x20 || byte == 0x7F;
    });
}

void readAddress(std::string_view text, Use use) {
    Address address;
    try {
        address = gateway::parseAddress(text, use);
    } catch (const AddressError& fault) {
        require(printable(fault.what()), "a fault without control characters");
        return;
    }
    const std::string again = gateway::shown(address);
    require(printable(again), "an address without control characters");
    require(address.mount.find_first_of(" /\r\n") == std::string::npos, "a mountpoint of one word");
    require(address.speed > 0.0, "a speed to divide by");
    require(printable(address.mount) && printable(address.password.reveal()), "one request line");
    const bool needsPassword =
        address.scheme == gateway::Scheme::ntripSource && address.version == 1;
    require(!needsPassword || address.password.reveal().find(' ') == std::string::npos,
            "a password of one word");
    address.password = {};
    require(needsPassword || gateway::parseAddress(again, use) == address, "the same address");
}

void readListener(std::string_view text) {
    try {
        const gateway::HostPort at = gateway::parseListener(text);
        require(gateway::parseListener(gateway::shown(at)) == at, "the same listener");
    } catch (const AddressError& fault) {
        require(printable(fault.what()), "a fault without control characters");
    }
}

void checkStation(const gateway::StationSettings& s) {
    require(gateway::isStationName(s.name) && gateway::isStationName(s.mountpoint),
            "names of files and mountpoints");
    require(!s.identifier.empty() && !s.sources.empty(), "an identifier and a source");
    require(!(s.positionM && s.followPosition), "one position");
    require(s.guardM > 0.0 && s.mostEpochs.value_or(1.0) > 0.0, "a guard and a rate");
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view toml = textOf({data, size});
    const gateway::ReadSettings read = gateway::parseSettings(toml, "f");
    std::ostringstream printed;
    gateway::printSettings(read, "f", printed);
    for (std::istringstream lines(printed.str()); lines;) {
        std::string line;
        std::getline(lines, line);
        require(printable(line), "lines without control characters");
    }
    for (const gateway::StationSettings& station : read.settings.stations)
        if (read.usable())
            checkStation(station);

    for (std::string_view rest = toml; !rest.empty();) {
        const std::string_view line = rest.substr(0, rest.find('\n'));
        rest.remove_prefix(std::min(line.size() + 1, rest.size()));
        readAddress(line, Use::source);
        readAddress(line, Use::output);
        readListener(line);
        gateway::faultOfHash(line);
        gateway::isUserName(line);
    }
    return 0;
}
