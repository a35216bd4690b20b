#include "ctl/init/Init.h"

#include "base/ComText.h"
#include "base/Findings.h"
#include "config/Deploy.h"
#include "ctl/Counted.h"
#include "ctl/Metres.h"
#include "ctl/check/Check.h"
#include "ctl/check/Place.h"
#include "ctl/check/Trial.h"
#include "ctl/check/Unit.h"
#include "ctl/dump/ByteSource.h"
#include "ctl/init/Files.h"
#include "gnss/Clock.h"

#include <arpa/inet.h>
#include <array>
#include <charconv>
#include <cstdlib>
#include <iostream>
#include <memory>
#include <netdb.h>
#include <stdexcept>
#include <sys/socket.h>

namespace ctl::init {

namespace fs = std::filesystem;

namespace {

constexpr auto kLongest = std::chrono::seconds(30); // that the stream is read
constexpr std::uint64_t kEnoughEpochs = 5;
constexpr double kAnySpanS = 1e9; // whatever times the stream has

[[noreturn]] void fail(const std::string& why) {
    throw std::runtime_error(why);
}

struct Endpoint {
    std::string host;
    int port = 0;
};

Endpoint endpointOf(const std::string& argument) {
    const std::size_t colon = std::min(argument.rfind(':'), argument.size());
    Endpoint out{argument.substr(0, colon), 0};
    const char* const end = argument.data() + argument.size();
    const auto read = std::from_chars(std::min(argument.data() + colon + 1, end), end, out.port);
    if (out.host.empty() || read.ec != std::errc() || read.ptr != end || out.port < 1 ||
        out.port > 65535)
        fail(argument + ": write HOST:PORT");
    return out;
}

/// The IPv4 address of a host: the service resolves no names.
std::string addressOf(const std::string& host) {
    addrinfo hints = {};
    hints.ai_family = AF_INET;
    hints.ai_socktype = SOCK_STREAM;
    addrinfo* found = nullptr;
    if (const int error = getaddrinfo(host.c_str(), nullptr, &hints, &found))
        fail(host + ": has no IPv4 address: " + gai_strerror(error));
    const std::unique_ptr<addrinfo, void (*)(addrinfo*)> list(found, freeaddrinfo);
    std::array<char, INET_ADDRSTRLEN> shown{};
    const auto* const address = reinterpret_cast<const sockaddr_in*>(list->ai_addr);
    inet_ntop(AF_INET, &address->sin_addr, shown.data(), shown.size());
    if (host != shown.data())
        std::cout << host << " is " << shown.data()
                  << "; the service resolves no names, so the address is written\n";
    return shown.data();
}

std::string checkedSystems(const std::string& letters) {
    for (const char letter : letters)
        if (!configuredSystem(letter))
            fail("--systems " + letters + ": letters of G R E C J");
    return letters;
}

Layout layoutOf(const std::string& name, const fs::path& folder) {
    const bool unit = folder == check::kUnitFolder;
    const fs::path own = folder / name;
    return {folder / (name + ".json"), own, unit ? fs::path(check::stateFolder(name)) : own};
}

/// A folder that goes with its scope.
class Scratch {
public:
    Scratch() {
        std::string pattern = (fs::temp_directory_path() / "kestrunectl-XXXXXX").string();
        if (!mkdtemp(pattern.data()))
            fail("no folder can be made in " + fs::temp_directory_path().string());
        path_ = pattern;
    }
    ~Scratch() {
        std::error_code none;
        fs::remove_all(path_, none);
    }
    Scratch(const Scratch&) = delete;
    Scratch& operator=(const Scratch&) = delete;
    const fs::path& path() const { return path_; }

private:
    fs::path path_;
};

/// What the service takes of a stream for which it has no position yet.
check::TrialResult listen(const std::string& endpoint, const Station& station) {
    const Scratch scratch;
    const Layout layout = layoutOf("trial", scratch.path());
    writeNew(filesOf(station, layout));
    Deployment deployment;
    if (readDeployment(deployment, layout.deployment).anyFatal())
        throw std::logic_error("the templates make no deployment");
    deployment.answering = {}; // nothing is answered without a position
    dump::ByteSource source(endpoint);
    check::Trial trial(std::move(deployment), kAnySpanS);
    const auto until = monotonicNow() + kLongest;
    std::array<std::uint8_t, 4096> block{};
    const check::TrialResult& soFar = trial.result();
    while (!trial.enough() && (soFar.places.empty() || soFar.epochEnds < kEnoughEpochs)) {
        const std::size_t n = source.read(block, until);
        if (n == 0)
            break;
        trial.take(std::span(block).first(n));
    }
    trial.finish(check::Trial::Rest::unread);
    check::TrialResult result = trial.result();
    result.deployment = nullptr; // goes with the trial
    return result;
}

std::string systemsOf(const check::TrialResult& seen) {
    std::string out;
    for (const ConfiguredSystem& s : kConfiguredSystems)
        for (const auto& [key, count] : seen.signals)
            if (key.first == s.letter && !contains(out, {&s.letter, 1}))
                out += s.letter;
    return out;
}

void tellStream(const std::string& endpoint, const check::TrialResult& seen) {
    std::cout << endpoint << ": " << counted(seen.epochEnds, "epoch");
    if (!seen.stations.empty())
        std::cout << " of station " << *seen.stations.begin();
    std::cout << "; messages";
    for (const auto& [type, count] : seen.types)
        std::cout << ' ' << type;
    std::cout << '\n';
    for (const ConfiguredSystem& s : kConfiguredSystems) {
        std::string signals;
        for (const auto& [key, count] : seen.signals)
            if (key.first == s.letter)
                signals += " " + key.second;
        if (!signals.empty())
            std::cout << "    " << s.fullName << signals << '\n';
    }
    for (const check::StatedPlace& place : seen.places)
        std::cout << "    " << place.type << " of station " << place.station
                  << text(": %.4f %.4f %.4f\n", place.xyz[0], place.xyz[1], place.xyz[2]);
}

/// Takes from the stream what the arguments do not say; what is missing, empty where all is there.
std::string takeStream(const Arguments& arguments, Station& station) {
    const check::TrialResult seen = listen(arguments.endpoint, station);
    if (seen.messages == 0)
        return text("no RTCM 3 message came within %d s", static_cast<int>(kLongest.count()));
    tellStream(arguments.endpoint, seen);
    if (seen.epochEnds == 0)
        return "no epoch of observations came";
    if (seen.places.empty())
        return "no position came (1005 or 1006): give it with --position X,Y,Z";
    for (const check::StatedPlace& place : seen.places)
        if (distance(place.xyz, seen.places[0].xyz) > 1.0)
            return "the stream states several positions: give one with --position X,Y,Z";
    station.xyz = seen.places[0].xyz;
    if (station.systems.empty())
        station.systems = systemsOf(seen);
    return station.systems.empty() ? "no observations of a system that replies carry came" : "";
}

int givenUp(const std::string& why) {
    std::cout.flush();
    std::cerr << "kestrunectl init: " << why << "; nothing is written\n";
    return 1;
}

} // namespace

int runInit(const Arguments& arguments) {
    const std::string name = check::unitName(arguments.name);
    if (name.empty() || name.find_first_of(" \t@%\\") != std::string::npos)
        fail(arguments.name + " is no name of a unit");
    const Endpoint endpoint = endpointOf(arguments.endpoint);
    Station station{stationName(name), {}, endpoint.port, {}, checkedSystems(arguments.systems)};
    if (station.name.empty())
        fail(name + ": a name has letters and digits");
    const fs::path folder = fs::weakly_canonical(arguments.folder);
    const Layout layout = layoutOf(name, folder);
    for (const NewFile& file : filesOf(station, layout)) // before it waits for a stream
        if (fs::exists(fs::symlink_status(file.path)))
            fail(file.path.string() + ": is there already; nothing is written");
    station.host = addressOf(endpoint.host);
    if (!arguments.position.empty())
        station.xyz = threeMetres("--position", arguments.position);
    else if (const std::string missing = takeStream(arguments, station); !missing.empty())
        return givenUp(missing);
    const std::vector<NewFile> files = filesOf(station, layout);
    writeNew(files);
    Deployment deployment;
    const bool unit = folder == check::kUnitFolder;
    const check::CheckResult result =
        check::checkDeployment(deployment, layout.deployment, {}, unit ? name : "");
    check::printCheck(result, std::cout);
    if (result.count(Severity::fatal) > 0) {
        removeNew(files);
        return givenUp("this deployment cannot work");
    }
    for (const NewFile& file : files)
        std::cout << "written: " << file.path.string() << '\n';
    std::cout << "next: kestrunectl check " << (unit ? "--unit " + name : files[0].path.string())
              << " --stream " << arguments.endpoint << '\n';
    return 0;
}

} // namespace ctl::init
