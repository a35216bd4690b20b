#include "gateway/station/Sky.h"
#include "gateway/station/Station.h"

#include <algorithm>

// What a station tells of itself.

namespace gateway {

namespace {

ref::Vec3 vectorOf(const Vector3& m) {
    return {m[0], m[1], m[2]};
}

} // namespace

Delivery Station::delivery(Instant now) const {
    if (!moved_.empty())
        return Delivery::stopped;
    if (!auditTrouble().empty() && now - audit_->lastTrouble() < kSilent)
        return Delivery::wrong;
    if (mountpoint_.delivers(now))
        return Delivery::delivering;
    return watch_.epochsOut() == 0 ? Delivery::starting : Delivery::silent;
}

void Station::glanceAt(Instant now) {
    if (const Delivery is = delivery(now); is != glance_.delivery || glance_.sinceUnixS == 0.0) {
        glance_.delivery = is;
        glance_.sinceUnixS = ctl::status::nowUnixS();
    }
    glance_.lastEpochUnixS = watch_.lastEpochUnixS();
    glance_.intervalS = watch_.intervalS();
    glance_.delayS = watch_.delayS(now);
    glance_.received = watch_.in(now).cells;
    glance_.kept = watch_.out(now).cells;
    glance_.rovers = mountpoint_.roversCount();
    glance_.place = place_;
}

bool Station::isLive() const {
    return settings_.clock.empty() && std::ranges::none_of(settings_.sources, [](const Address& a) {
               return a.scheme == Scheme::file;
           });
}

std::optional<double> Station::clockAheadS() const {
    return isLive() ? watch_.clockAheadS() : std::nullopt;
}

AuditLook Station::auditLook() const {
    return audit_ ? AuditLook{true, audit_->counts(), audit_->worst()} : AuditLook{};
}

StationLook Station::look(Instant now) const {
    StationLook out;
    static_cast<StationGlance&>(out) = glance_;
    out.identifier = settings_.identifier;
    out.descriptor = feed_.active().heard().equipment();
    constexpr std::array<double, 3> north{0.0, 300.0, 0.0};
    out.offsetM = settings_.offsetM.value_or(north);
    out.sources = feed_.look(now);
    if (ephemerides_)
        out.ephemerides = ephemerides_->look(now).front();
    out.failovers = feed_.changes();
    out.engineState = engine_.state();
    out.engineStarts = engine_.starts();
    if (const auto since = engine_.connectedSince())
        out.engineSinceUnixS = unixTimeOf(*since);
    out.received = feed_.active().heard().messages();
    out.sent = mountpoint_.heard().messages();
    out.audit = auditLook();
    out.rovers = mountpoint_.rovers();
    if (!place_)
        return out;
    const ref::Vec3 site = vectorOf(*place_);
    std::optional<ref::Vec3> offset;
    if (settings_.offsetM)
        offset = vectorOf(*settings_.offsetM);
    const ref::Vec3 there = ref::virtualPoint(site, offset);
    out.virtualPlace = Vector3{there[0], there[1], there[2]};
    Bytes ephemerides = feed_.active().kept().current(now);
    const Bytes others = others_.current(now);
    ephemerides.insert(ephemerides.end(), others.begin(), others.end());
    const double sinceStartS = std::chrono::duration<double>(now - startedAt_).count();
    const ref::GpsTime near = settings_.clock.empty() ? engineClock() : engineClock() + sinceStartS;
    const double sinceInS = std::chrono::duration<double>(watch_.sinceIn(now)).count();
    out.sky = skyOf(watch_.in(now).bytes, watch_.out(now).bytes, ephemerides,
                    {site, there, near, sinceInS});
    return out;
}

} // namespace gateway
