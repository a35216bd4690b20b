#include "gateway/ntrip/SourceTable.h"

#include "base/Findings.h"
#include "gateway/net/Characters.h"

#include <algorithm>
#include <cmath>

namespace gateway::ntrip {

namespace {

struct SystemName {
    char letter;
    std::string_view name;
};
constexpr SystemName kSystemNames[] = {{'G', "GPS"}, {'R', "GLO"},  {'E', "GAL"}, {'C', "BDS"},
                                       {'J', "QZS"}, {'S', "SBAS"}, {'I', "IRN"}};

/// A field: a ';' is quoted; control characters, and quotes that would be taken for such, are not
/// sent.
std::string fieldText(std::string_view field) {
    std::string out;
    for (const char c : field) {
        if (c == ';')
            out += "\";\"";
        else if (c == '"')
            out += '\'';
        else
            out += isControl(c) ? ' ' : c;
    }
    return out;
}

std::string fixedText(double value, int decimals) {
    return text("%.*f", decimals, std::isfinite(value) ? std::clamp(value, -1e9, 1e9) : 0.0);
}

/// Degrees; without the sign of a rounded zero.
std::string degreesText(double valueDeg) {
    const std::string rounded = fixedText(valueDeg, 2);
    return rounded == "-0.00" ? "0.00" : rounded;
}

/// "(1)", "(0.2)", "(12.5)"; nothing for a message that came once.
std::string intervalText(double intervalS) {
    if (!(intervalS >= 0.005))
        return "";
    std::string rounded = fixedText(intervalS, intervalS < 0.95 ? 2 : 1);
    rounded.erase(rounded.find_last_not_of('0') + 1);
    if (rounded.ends_with('.'))
        rounded.pop_back();
    return "(" + rounded + ")";
}

std::string messagesText(const std::vector<std::pair<int, double>>& messages) {
    std::string out;
    for (const auto& [number, intervalS] : messages)
        out += (out.empty() ? "" : ",") + std::to_string(number) + intervalText(intervalS);
    return out;
}

std::string systemsText(std::string_view letters) {
    std::string out;
    for (const SystemName& system : kSystemNames)
        if (letters.find(system.letter) != letters.npos)
            out.append(out.empty() ? "" : "+").append(system.name);
    return out;
}

std::string joined(std::initializer_list<std::string> fields) {
    std::string out;
    for (const std::string& field : fields)
        out.append(field).append(";");
    out.pop_back();
    return out;
}

/// ISO 3166 leaves XAA to XXZ to its users.
std::string countryText(const std::string& country) {
    return country.empty() ? "XXX" : fieldText(country);
}

} // namespace

std::string streamLine(const StreamEntry& entry) {
    return joined({fieldText(entry.mountpoint), fieldText(entry.identifier), "RTCM 3.3",
                   messagesText(entry.messages), std::to_string(entry.carrier),
                   systemsText(entry.systems), "none", countryText(entry.country),
                   degreesText(entry.latitudeDeg), degreesText(entry.longitudeDeg), "0", "0",
                   fieldText(entry.generator), "none", std::string(1, entry.authentication), "N",
                   std::to_string(entry.bitRate), fieldText(entry.misc)});
}

std::string sourceTable(const CasterEntry& caster, const std::vector<StreamEntry>& streams) {
    std::string out =
        joined({"CAS", fieldText(caster.host), std::to_string(caster.port),
                fieldText(caster.identifier), fieldText(caster.operatorName), "0",
                countryText(caster.country), "0.00", "0.00", "0.0.0.0", "0", "none"}) +
        "\r\n";
    for (const StreamEntry& entry : streams)
        out += "STR;" + streamLine(entry) + "\r\n";
    return out + "ENDSOURCETABLE\r\n";
}

} // namespace gateway::ntrip
