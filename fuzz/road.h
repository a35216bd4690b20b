#pragma once

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

/// Road: the road of an epoch, from received bytes to reply and printed lines: whatever the bytes
/// are, it does not matter in which blocks they come. The configuration is that of the example with
/// a few satellites of each system; their ephemerides are there, and some GLONASS channels are left
/// to the stream.

namespace road {

inline const ref::GpsTime kNow{2009, 430650};

/// What the stream led to.
struct Outcome {
    std::vector<std::uint8_t> frames; // status, frame, size of the reply and reply, in turn
    std::string lines;
    bool operator==(const Outcome&) const = default;
};

inline void append(std::vector<std::uint8_t>& out, std::uint32_t number, Bytes bytes) {
    for (int shift = 0; shift < 32; shift += 8)
        out.push_back(static_cast<std::uint8_t>(number >> shift));
    out.insert(out.end(), bytes.begin(), bytes.end());
}

/// The first satellites of each system that the sky shows.
inline std::vector<std::string> fewSatellites(ref::Sky sky) {
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
    explicit Road(const Answering& answering) {
        const std::filesystem::path started = std::filesystem::current_path();
        std::filesystem::current_path(KESTRUNE_SOURCE); // paths of the example are relative
        require(!readDeployment(record_, "examples/canberra/vrs.json").anyFatal(),
                "the example is usable");
        record_.answering = answering;
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
        const Bytes reply = Bytes(reply_).first(static_cast<std::size_t>(size));
        if (record_.answering.complete)
            requireFrames(reply);
        else
            require(size <= 4096, "a reply of at most 4096 bytes");
        append(outcome_->frames, static_cast<std::uint32_t>(size), reply);
    }

    /// Whole RTCM 3 frames, whose MSM can be read.
    static void requireFrames(Bytes reply) {
        while (!reply.empty()) {
            const std::size_t size = wholeFrame(reply);
            require(size > 0, "a whole frame in the answer");
            if (isMsm4To7(messageType(reply))) {
                MsmMessage m;
                BitReader in = messageOf(reply.first(size));
                layoutMsm(in, m);
                require(in.ok() && m.cellCount > 0, "cells that can be read");
            }
            reply = reply.subspan(size);
        }
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
        service_->station.introduced.reset();
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
    std::array<std::uint8_t, kLongestReply> reply_;
    Outcome* outcome_ = nullptr;
    Outcome block_, pieces_;
};

} // namespace road
