#include "app/Service.h"
#include "base/ComText.h"
#include "config/Deploy.h"
#include "fuzz/support.h"
#include "gnss/Clock.h"
#include "gnss/ComTime.h"
#include "gnss/Leaps.h"
#include "reference/standard/sky.h"

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

void append(std::vector<std::uint8_t>& out, std::uint32_t number, Bytes bytes) {
    for (int shift = 0; shift < 32; shift += 8)
        out.push_back(static_cast<std::uint8_t>(number >> shift));
    out.insert(out.end(), bytes.begin(), bytes.end());
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
        require(!readDeployment(record_, "examples/canberra/vrs.json").anyFatal(),
                "the example is usable");
        record_.tables.leapsc = std::filesystem::absolute(record_.tables.leapsc);
        std::filesystem::current_path(started);

        const Vector3& xyz = record_.stations[0].xyz;
        ref::Sky sky({xyz[0], xyz[1], xyz[2]});
        keep(fewSatellites(sky));
        utcNow = [] { return gpst2utc(gpst2time(kNow.week, kNow.sow)); };
        service_->prepareSession();
        service_->intake.onrtcm = [this](std::uint32_t status, const std::uint8_t* frame,
                                         std::int32_t length) { take(status, frame, length); };
        outcome_ = &block_;
        for (const ref::Bytes& frame : sky.ephemerisFrames(kNow))
            read(frame);
        *ephemerides_ = service_->intake.ephemerides;
        printed_.take(block_.lines);
    }

    /// The stream in one block and in pieces; both begin at the same start.
    void run(Bytes stream) {
        begin(block_);
        read(stream);
        printed_.take(block_.lines);
        begin(pieces_);
        inPieces(stream, [this](Bytes piece) { read(piece); });
        printed_.take(pieces_.lines);
        require(block_ == pieces_, "the same frames, replies and lines for a block and for pieces");
    }

private:
    void take(std::uint32_t status, const std::uint8_t* frame, std::int32_t length) {
        require(status == kEpoch || status == kEphemeris || status == kStation,
                "a positive status");
        require(length >= 6 && length <= 1029 && frame[0] == kPreamble, "a whole frame");
        ephemerisCame_ = ephemerisCame_ || status == kEphemeris;
        append(outcome_->frames, status, {frame, static_cast<std::size_t>(length)});
        if (status != kEpoch)
            return;
        const int size = service_->answer(0, reply_);
        require(size >= 0 && size <= 4096, "a reply of at most 4096 bytes");
        append(outcome_->frames, static_cast<std::uint32_t>(size),
               Bytes(reply_).first(static_cast<std::size_t>(size)));
    }

    void read(Bytes bytes) {
        StreamReader(service_->intake, 0, bytes.data(), static_cast<int>(bytes.size()));
    }

    void keep(const std::vector<std::string>& names) {
        std::erase_if(record_.satellites,
                      [&](const SatelliteRecord& s) { return pointer_string(names, s.cprn) < 0; });
        record_.satelliteNames.clear();
        bool known = false;
        for (SatelliteRecord& satellite : record_.satellites) {
            record_.satelliteNames.push_back(satellite.cprn);
            if (satellite.cprn[0] == 'R' && (known = !known))
                satellite.glonassChannel = kUnknownChannel;
        }
        record_.indexSatellites();
    }

    /// Everything as it was before the first byte, at the cost of what was touched.
    void begin(Outcome& next) {
        StreamObs_m_initial(service_->intake, record_.tables.leapsc);
        if (ephemerisCame_) {
            EphemerisStore& store = service_->intake.ephemerides;
            std::copy_n(ephemerides_->kepler.begin(), ephemerides_->keplerCount,
                        store.kepler.begin());
            std::copy_n(ephemerides_->glonass.begin(), ephemerides_->glonassCount,
                        store.glonass.begin());
        }
        ephemerisCame_ = false;
        outcome_ = &next;
        next.frames.clear();
    }

    Printed printed_;
    const std::unique_ptr<Service> service_ = std::make_unique<Service>();
    DeployConfig& record_ = service_->record;
    const std::unique_ptr<EphemerisStore> ephemerides_ = std::make_unique<EphemerisStore>();
    bool ephemerisCame_ = false;
    std::array<std::uint8_t, 8192> reply_;
    Outcome* outcome_ = nullptr;
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
