#include "gateway/settings/CheckSettings.h"

#include "ctl/check/Check.h"

#include <ostream>

namespace gateway {

namespace {

template <class List, class Text>
std::string listed(const List& list, const char* between, Text&& textOf) {
    std::string out;
    for (const auto& item : list)
        out += (out.empty() ? "" : between) + textOf(item);
    return out;
}

std::string who(const Access& access) {
    switch (access.who) {
    case Access::Who::anyone:
        return "anyone";
    case Access::Who::users:
        return "all users";
    default:
        return listed(access.names, ", ", [](const std::string& name) { return name; });
    }
}

std::string offsetOf(const StationSettings& s) {
    if (!s.offsetM)
        return "300 m north";
    const auto& [east, north, up] = *s.offsetM;
    return text("%g m east, %g m north, %g m up", east, north, up);
}

std::vector<std::string> outlineOf(const Settings& s) {
    const auto listener = [](const HostPort& at) { return shown(at); };
    const auto stream = [](const Address& a) { return shown(a); };
    std::vector<std::string> out;
    if (!s.caster.listen.empty())
        out.push_back("rovers connect to " + listed(s.caster.listen, ", ", listener));
    if (!s.caster.listenTls.empty())
        out.push_back("over TLS to " + listed(s.caster.listenTls, ", ", listener));
    for (const StationSettings& station : s.stations) {
        out.push_back("station " + station.name + ": " +
                      listed(station.sources, ", else ", stream));
        if (!s.caster.listen.empty() || !s.caster.listenTls.empty())
            out.push_back("    to mountpoint " + station.mountpoint + " for " +
                          who(station.access) + ", " + offsetOf(station));
        for (const Address& output : station.push)
            out.push_back("    to " + shown(output));
    }
    return out;
}

} // namespace

void printSettings(const ReadSettings& read, const std::string& file, std::ostream& out) {
    ctl::check::CheckResult result{file, {}, {}};
    for (const ctl::check::Remark& remark : read.remarks)
        result.faults.push_back({remark, {}});
    if (read.usable())
        result.outline = outlineOf(read.settings);
    ctl::check::printCheck(result, out);
}

int runCheck(const std::filesystem::path& file, std::ostream& out) {
    const ReadSettings read = readSettings(file, Look::filesAndPorts);
    printSettings(read, file.string(), out);
    return read.usable() ? 0 : 1;
}

} // namespace gateway
