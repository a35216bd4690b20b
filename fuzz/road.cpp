#include "fuzz/support.h"

#include "common/Clock.h"
#include "common/ComText.h"
#include "common/ComTime.h"
#include "common/DeployConfig.h"
#include "config/Deploy.h"
#include "intake/StreamObs.h"
#include "orbit/Rnxeph.h"
#include "reference/standard/sky.h"
#include "vrs/VrsMain.h"

#include <algorithm>
#include <array>
#include <filesystem>
#include <map>
#include <memory>

// The road of an epoch, from received bytes to reply and printed lines: whatever the bytes are, it
// does not matter in which blocks they come. The configuration is that of the example with a few
// satellites of each system; their ephemerides are there, and some GLONASS channels are left to the
// stream.

namespace {

const ref::GpsTime kNow{2009, 430650};

/// What the stream led to.
struct Outcome {
    std::vector<std::uint8_t> frames; // status, frame, size of the reply and reply, in turn
    std::string lines;
    bool operator==(const Outcome&) const = default;
};
Outcome* outcome = nullptr;
bool ephemerisCame = false;
std::array<std::uint8_t, 8192> reply;

void append(std::uint32_t number, Bytes bytes) {
    std::vector<std::uint8_t>& out = outcome->frames;
    for (int shift = 0; shift < 32; shift += 8)
        out.push_back(static_cast<std::uint8_t>(number >> shift));
    out.insert(out.end(), bytes.begin(), bytes.end());
}

void take(std::uint32_t status, const std::uint8_t* frame, std::int32_t length) {
    require(status == kEpoch || status == kEphemeris || status == kStation, "a positive status");
    require(length >= 6 && length <= 1029 && frame[0] == kPreamble, "a whole frame");
    ephemerisCame = ephemerisCame || status == kEphemeris;
    append(status, {frame, static_cast<std::size_t>(length)});
    if (status != kEpoch)
        return;
    const int size = VrsMain(0, reply);
    require(size >= 0 && size <= 4096, "a reply of at most 4096 bytes");
    append(static_cast<std::uint32_t>(size), Bytes(reply).first(static_cast<std::size_t>(size)));
}

/// The first satellites of each system that the sky shows.
std::vector<std::string> fewSatellites(ref::Sky sky) {
    constexpr int most = 3; // of a system
    std::map<char, int> count;
    std::vector<std::string> names;
    for (const ref::Cell& cell : sky.observe(kNow, false)) {
        const std::string name = ref::satName(cell.system, cell.id);
        if (pointer_string(names, name) < 0 && count[cell.system]++ < most)
            names.push_back(name);
    }
    return names;
}

class Road {
public:
    Road() {
        const std::filesystem::path started = std::filesystem::current_path();
        std::filesystem::current_path(KESTRUNE_SOURCE); // paths of the example are relative
        require(!readDeployment(DLY, "examples/canberra/vrs.json").anyFatal(),
                "the example is usable");
        DLY.tables.leapsc = std::filesystem::absolute(DLY.tables.leapsc);
        std::filesystem::current_path(started);

        const Vector3& xyz = DLY.stations[0].xyz;
        ref::Sky sky({xyz[0], xyz[1], xyz[2]});
        keep(fewSatellites(sky));
        DLY.stationEpochs.assign(DLY.stations.size(), {});
        utcNow = [] { return gpst2utc(gpst2time(kNow.week, kNow.sow)); };
        onrtcm = take;
        Rnxeph_initial();
        StreamObs_m_initial();
        outcome = &block_;
        for (const ref::Bytes& frame : sky.ephemerisFrames(kNow))
            StreamReader(0, frame.data(), static_cast<int>(frame.size()));
        ephemerides_ = BRDEPH;
        printed_.take(block_.lines);
    }

    /// The stream in one block and in pieces; both begin at the same start.
    void run(Bytes stream) {
        begin(block_);
        StreamReader(0, stream.data(), static_cast<int>(stream.size()));
        printed_.take(block_.lines);
        begin(pieces_);
        inPieces(stream, [](Bytes piece) {
            StreamReader(0, piece.data(), static_cast<int>(piece.size()));
        });
        printed_.take(pieces_.lines);
        require(block_ == pieces_, "the same frames, replies and lines for a block and for pieces");
    }

private:
    static void keep(const std::vector<std::string>& names) {
        std::erase_if(DLY.satellites,
                      [&](const SatelliteRecord& s) { return pointer_string(names, s.cprn) < 0; });
        DLY.satelliteNames.clear();
        bool known = false;
        for (SatelliteRecord& satellite : DLY.satellites) {
            DLY.satelliteNames.push_back(satellite.cprn);
            if (satellite.cprn[0] == 'R' && (known = !known))
                satellite.glonassChannel = kUnknownChannel;
        }
        DLY.indexSatellites();
    }

    /// Everything as it was before the first byte, at the cost of what was touched.
    void begin(Outcome& next) {
        StreamObs_m_initial();
        if (ephemerisCame) {
            std::copy_n(ephemerides_.kepler.begin(), ephemerides_.keplerCount,
                        BRDEPH.kepler.begin());
            std::copy_n(ephemerides_.glonass.begin(), ephemerides_.glonassCount,
                        BRDEPH.glonass.begin());
        }
        ephemerisCame = false;
        outcome = &next;
        next.frames.clear();
    }

    Printed printed_;
    EphemerisStore ephemerides_;
    Outcome block_, pieces_;
};

std::unique_ptr<Road> road;

} // namespace

extern "C" int LLVMFuzzerInitialize(int* /*argc*/, char*** /*argv*/) {
    road = std::make_unique<Road>();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size > 0)
        road->run(withCheckWords({data, size}));
    return 0;
}
