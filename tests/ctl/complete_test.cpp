#include "session.h"

#include "reference/service/complete.h"
#include "reference/service/judge.h"
#include "reference/standard/legacy.h"

#include <functional>

// What a service with the complete answer is said to owe, and whether each wrong field is found: in
// answers that are made here, right ones first.

namespace {

using ref::Bytes;
using ref::RawMsm;

constexpr std::uint32_t kField = 430650000; // kNow

ref::Expectation completely(ref::Output output = ref::Output::reply) {
    ref::Expectation e;
    e.answer = ref::Answer::complete;
    e.output = output;
    e.siteM = kSite;
    e.near = kNow;
    for (const std::string& sat : ref::Constellation::satellites("GRECJ"))
        e.satellites.insert(sat);
    return e;
}

void append(Bytes& out, const Bytes& more) {
    out.insert(out.end(), more.begin(), more.end());
}

/// What a station sends at a time: fields that simulated receivers leave at zero have values, one
/// satellite is without a rough range, one without a rough rate, and one signal has an id that no
/// table has.
Bytes epochOf(ref::Sky& sky, ref::GpsTime t, int msm) {
    Bytes out;
    for (const ref::Msm& m : sky.epoch(t, msm)) {
        RawMsm raw = ref::rawOf(m);
        raw.iods = 5;
        raw.reserved = 77;
        raw.steering = 1;
        raw.externalClock = 2;
        raw.smoothed = 1;
        raw.smoothing = 6;
        for (RawMsm::Satellite& s : raw.satellites)
            s.info = s.info == 0 ? 9 : s.info;
        raw.satellites.at(1).ms = 255;
        raw.satellites.at(2).rate = -8192;
        if (raw.system() == 'G')
            for (RawMsm::Cell& c : raw.cells)
                c.signal = c.signal == 23 ? 29 : c.signal; // 5Q
        raw.signals.clear();
        for (int id = 1; id <= 32; ++id)
            for (const RawMsm::Cell& c : raw.cells)
                if (c.signal == id && (raw.signals.empty() || raw.signals.back() != id))
                    raw.signals.push_back(id);
        append(out, ref::frame(ref::writeRawMsm(raw)));
    }
    return out;
}

/// Rounds to the nearest step; the invalid mark where there is no value, or no room for it.
int steps(const std::optional<double>& value, double unit, int none) {
    const int n = value ? static_cast<int>(std::lround(*value / unit)) : none;
    return std::abs(n) < -none ? n : none;
}

/// A message of an answer, with the rough range in the middle of those of its satellite.
RawMsm answered(const ref::DueMessage& due, bool more) {
    constexpr double msM = ref::kLightSpeed / 1000;
    const RawMsm& from = due.from.raw;
    const ref::MsmForm& form = ref::msmForm(from.type % 10);
    RawMsm m = from;
    m.station = 4095;
    m.more = more;
    m.satellites.clear();
    m.cells.clear();
    for (const ref::DueMessage::Satellite& s : due.satellites) {
        RawMsm::Satellite rough = from.satellite(s.id);
        const double changeMs = s.changeM / msM;
        const bool ranges = rough.ms != 255;
        const bool rates = form.rates && rough.rate != -8192;
        double lowMs = 1e9;
        double highMs = 0;
        for (std::size_t i = 0; i < from.cells.size(); ++i) {
            const ref::WholeCell& w = due.from.whole[i];
            if (from.cells[i].id != s.id || !w.rangeMs)
                continue;
            lowMs = std::min(lowMs, *w.rangeMs);
            highMs = std::max(highMs, *w.rangeMs);
            if (w.rateMps)
                rough.rate = static_cast<int>(std::lround(*w.rateMps + s.changeRateMps));
        }
        if (highMs > 0) {
            const auto k = static_cast<int>(std::lround(((lowMs + highMs) / 2 + changeMs) * 1024));
            rough.ms = k / 1024;
            rough.part = k % 1024;
        }
        for (std::size_t i = 0; i < from.cells.size(); ++i) {
            RawMsm::Cell c = from.cells[i];
            const ref::WholeCell& w = due.from.whole[i];
            if (c.id != s.id)
                continue;
            const double roughMs = rough.ms + rough.part / 1024.0;
            const auto fine = [](std::optional<double> v, double change) {
                return v ? std::optional(*v + change) : v;
            };
            if (ranges) {
                c.range = steps(fine(w.rangeMs, changeMs - roughMs), std::ldexp(1, form.rangeExp),
                                form.rangeNone());
                c.phase = steps(fine(w.phaseMs, changeMs - roughMs), std::ldexp(1, form.phaseExp),
                                form.phaseNone());
            }
            if (rates)
                c.rate = steps(fine(w.rateMps, s.changeRateMps - rough.rate), 1e-4, ref::kRateNone);
            m.cells.push_back(c);
        }
        m.satellites.push_back(rough);
    }
    return m;
}

using Messages = std::vector<RawMsm>;
/// Changes the third answer.
using Spoil = std::function<void(Messages&)>;
using SpoilFrames = std::function<void(std::vector<Bytes>&)>;

Bytes inReplyFrame(const std::vector<Bytes>& messages) {
    Bytes all;
    for (const Bytes& m : messages)
        append(all, m);
    return replyFrame(all);
}

/// What a right service sends back for a stream, but for what is spoilt.
Bytes answersTo(const Bytes& stream, const ref::Expectation& e, const Spoil& spoil = {},
                const SpoilFrames& spoilFrames = {}) {
    ref::CompletePredictor predictor(e);
    Bytes out;
    int n = 0;
    std::optional<ref::GpsTime> said;
    for (const ref::Expected& x : predictor.take(stream)) {
        append(out, x.frame);
        if (x.messages.empty())
            continue;
        ++n;
        Messages messages;
        for (const ref::DueMessage& d : x.messages)
            messages.push_back(answered(d, &d != &x.messages.back()));
        if (n == 3 && spoil)
            spoil(messages);
        std::vector<Bytes> frames;
        const bool plain = e.output == ref::Output::rtcm3;
        if (!plain || !said || x.time - *said >= 10) {
            said = x.time;
            const bool height = plain && x.antennaHeightM;
            frames.push_back(
                ref::frame(ref::write1005({.type = height ? 1006 : 1005,
                                           .station = 4095,
                                           .xyzM = ref::virtualPoint(e.siteM, e.offsetM),
                                           .heightM = x.antennaHeightM.value_or(0)})));
            frames.push_back(ref::frame(ref::write1033(x.equipment)));
        }
        for (const RawMsm& m : messages)
            frames.push_back(ref::frame(ref::writeRawMsm(m)));
        if (n == 3 && spoilFrames)
            spoilFrames(frames);
        if (plain)
            for (const Bytes& f : frames)
                append(out, f);
        else
            append(out, inReplyFrame(frames));
    }
    return out;
}

Bytes streamOf(int msm, int epochs) {
    ref::Sky sky(kSite);
    sky.systems = "GREC";
    Bytes stream;
    for (const Bytes& f : sky.ephemerisFrames(kNow))
        append(stream, f);
    append(stream, ref::frame(ref::write1005(
                       {.type = 1006, .station = 1, .xyzM = kSite, .heightM = 1.2345})));
    append(stream, ref::frame(ref::write1033({1, "ANT", 3, "A1", "RECEIVER", "FW", "R1"})));
    append(stream, ref::frame(ref::write1008({1, "ANTENNA B", 4, "B2", "", "", ""})));
    append(stream, ref::frame(ref::write1230(1, true, {1, 2, 3, 4})));
    for (int i = 0; i < epochs; ++i)
        append(stream, epochOf(sky, kNow + i, msm));
    return stream;
}

Spoil first(const std::function<void(RawMsm&)>& change) {
    return [change](Messages& m) { change(m.at(0)); };
}
Spoil cell(const std::function<void(RawMsm::Cell&)>& change) {
    return first([change](RawMsm& m) { change(m.cells.at(0)); });
}

/// An observation message of one satellite.
Bytes piece(int type, std::uint32_t field, bool more, int station = 1, int id = 7, int signal = 2) {
    RawMsm m;
    m.type = type;
    m.station = station;
    m.epochField = field;
    m.more = more;
    m.satellites = {{.id = id, .ms = 70}};
    m.signals = {signal};
    m.cells = {{.id = id, .signal = signal}};
    return ref::frame(ref::writeRawMsm(m));
}

} // namespace

TEST(CompleteAnswer, IsRightInEveryForm) {
    for (const ref::Output output : {ref::Output::reply, ref::Output::rtcm3})
        for (const int msm : {4, 5, 6, 7}) {
            ref::Expectation e = completely(output);
            e.offsetM = ref::Vec3{1000, -2000, 30};
            const Bytes stream = streamOf(msm, 12);
            const ref::Verdict v = judge(stream, answersTo(stream, e), e);
            EXPECT_EQ(v.wrong, 0);
            for (const std::string& fault : v.faults)
                ADD_FAILURE() << fault;
            EXPECT_EQ(v.replies, 12);
            for (const char system : {'G', 'R', 'E', 'C'}) {
                EXPECT_EQ(v.tally.at(system).kept, v.tally.at(system).answerable);
                EXPECT_GT(v.tally.at(system).kept, 100);
            }
            EXPECT_GT(v.signals.at("G"), 50) << "the id that no table has";
        }
}

TEST(CompleteAnswer, HasEachWrongFieldFound) {
    const struct {
        const char* what;
        Spoil spoil;
        const char* found;
    } cases[] = {
        {"IODS", first([](RawMsm& m) { m.iods ^= 1; }), "IODS is 4 instead of 5"},
        {"DF001", first([](RawMsm& m) { m.reserved = 0; }), "reserved bits is 0 instead of 77"},
        {"steering", first([](RawMsm& m) { m.steering = 0; }), "clock steering"},
        {"clock", first([](RawMsm& m) { m.externalClock = 0; }), "external clock"},
        {"smoothed", first([](RawMsm& m) { m.smoothed = 0; }), "smoothing indicator"},
        {"smoothing", first([](RawMsm& m) { m.smoothing = 5; }), "smoothing interval"},
        {"station", first([](RawMsm& m) { m.station = 1; }), "station id is 1 instead of 4095"},
        {"time", [](Messages& m) { ++m.at(1).epochField; }, "1087: epoch time"},
        {"bit", [](Messages& m) { m.at(2).more = false; }, "multiple-message bit"},
        {"info", first([](RawMsm& m) { m.satellites.at(0).info = 0; }), "extended satellite"},
        {"lock", cell([](auto& c) { c.lock ^= 1; }), "lock time"},
        {"half", cell([](auto& c) { c.half ^= 1; }), "half-cycle flag"},
        {"CNR", cell([](auto& c) { c.cnr ^= 1; }), "C/N0"},
        {"range", cell([](auto& c) { c.range += 2; }), " range is off by 0.00"},
        {"phase", cell([](auto& c) { c.phase -= 2; }), " phase is off by -0.000"},
        {"rate", cell([](auto& c) { c.rate += 5; }), " rate is off by 0.000"},
        {"range lost", cell([](auto& c) { c.range = -(1 << 19); }), "range is invalid and was"},
        {"phase lost", cell([](auto& c) { c.phase = -(1 << 23); }), "phase is invalid and was"},
        {"rate lost", cell([](auto& c) { c.rate = -(1 << 14); }), "rate is invalid and was"},
        {"rough range", first([](RawMsm& m) { ++m.satellites.at(0).part; }), "range is off by 29"},
        {"without rough range", first([](RawMsm& m) {
             for (RawMsm::Satellite& s : m.satellites)
                 if (s.ms == 255)
                     ++s.part;
         }),
         "has a wrong rough range"},
        {"fine fields without rough range", first([](RawMsm& m) {
             for (RawMsm::Cell& c : m.cells)
                 if (m.satellite(c.id).ms == 255)
                     ++c.phase;
         }),
         "other fine fields"},
        {"fine rate without rough rate", first([](RawMsm& m) {
             for (RawMsm::Cell& c : m.cells)
                 if (m.satellite(c.id).rate == -8192)
                     ++c.rate;
         }),
         "another fine rate"},
        {"cell dropped", first([](RawMsm& m) { m.cells.erase(m.cells.begin() + 4); }),
         " is missing at"},
        {"cell of the unknown id dropped", first([](RawMsm& m) {
             std::erase_if(m.cells, [](const auto& c) { return c.signal == 29; });
         }),
         "signal 29 is missing at"},
        {"cell added", first([](RawMsm& m) {
             m.signals = {2, 3, 10, 29};
             RawMsm::Cell c = m.cells.front();
             c.signal = 3;
             m.cells.insert(m.cells.begin() + 1, c);
         }),
         "1P must not be there"},
        {"satellite added", first([](RawMsm& m) {
             m.satellites.push_back(m.satellites.front());
             m.cells.push_back(m.cells.front());
             m.satellites.back().id = m.cells.back().id = 60;
         }),
         "must not be there"},
        {"satellite dropped", first([](RawMsm& m) {
             const int id = m.satellites.front().id;
             std::erase_if(m.cells, [id](const auto& c) { return c.id == id; });
             m.satellites.erase(m.satellites.begin());
         }),
         " is missing at"},
        {"message dropped", [](Messages& m) { m.erase(m.begin() + 1); }, "message 1087 is missing"},
        {"message twice", [](Messages& m) { m.insert(m.begin(), m.front()); },
         "message 1077 must not be there"},
        {"order", [](Messages& m) { std::swap(m.at(0), m.at(1)); }, "not in this place"},
    };
    const ref::Expectation e = completely();
    const Bytes stream = streamOf(7, 4);
    for (const auto& c : cases) {
        const ref::Verdict v = judge(stream, answersTo(stream, e, c.spoil), e);
        EXPECT_GT(v.wrong, 0) << c.what;
        EXPECT_EQ(v.replies, 4) << c.what;
        const auto tells = [&](const std::string& f) { return contains(f, c.found); };
        EXPECT_TRUE(std::any_of(v.faults.begin(), v.faults.end(), tells))
            << c.what << ": " << (v.faults.empty() ? "" : v.faults.front());
    }
}

TEST(CompleteAnswer, MayChooseItsRoughFieldsAndKeepColumns) {
    const ref::Expectation e = completely();
    const Bytes stream = streamOf(7, 4);
    const Spoil otherwise = first([](RawMsm& m) {
        RawMsm::Satellite& s = m.satellites.at(0);
        const int way = m.cells.at(0).range > 0 ? 1 : -1;
        const int k = s.ms * 1024 + s.part + way;
        s.ms = k / 1024;
        s.part = k % 1024;
        ++s.rate;
        for (RawMsm::Cell& c : m.cells)
            if (c.id == s.id) {
                c.range -= way << 19; // 2^-10 ms
                c.phase -= way << 21;
                c.rate -= 10000;
            }
        m.cells.erase(m.cells.begin());
        std::erase_if(m.cells, [](const auto& c) { return c.signal == 29; });
    });
    const ref::Verdict v = judge(stream, answersTo(stream, e, otherwise), e);
    for (const std::string& fault : v.faults) // of what was taken out; its column is still there
        EXPECT_TRUE(contains(fault, "is missing")) << fault;
}

// A fine range at the end of its field: the next rough range holds it after the move, and where
// none holds all, what is lost is nobody's fault.
TEST(CompleteAnswer, HasToHoldWhatOneRoughRangeHolds) {
    const ref::Expectation e = completely();
    for (const bool holdable : {true, false}) {
        ref::Sky sky(kSite);
        sky.systems = "G";
        Bytes stream;
        for (const Bytes& f : sky.ephemerisFrames(kNow))
            append(stream, f);
        for (int i = 0; i < 3; ++i)
            for (const ref::Msm& m : sky.epoch(kNow + i, 7)) {
                RawMsm raw = ref::rawOf(m);
                for (RawMsm::Cell& c : raw.cells)
                    c.range = c.signal == 2 ? (1 << 19) - 5 : holdable ? 0 : -(1 << 19) + 5;
                append(stream, ref::frame(ref::writeRawMsm(raw)));
            }
        const Spoil lose = first([](RawMsm& m) {
            for (RawMsm::Cell& c : m.cells)
                c.range = c.signal == 2 ? -(1 << 19) : c.range;
        });
        const ref::Verdict v = judge(stream, answersTo(stream, e, lose), e);
        const auto lost = [](const std::string& f) { return contains(f, "is invalid and was"); };
        EXPECT_EQ(std::any_of(v.faults.begin(), v.faults.end(), lost), holdable);
    }
}

TEST(PlainStream, HasEachWrongFrameFound) {
    const struct {
        const char* what;
        SpoilFrames spoil;
        const char* found;
    } cases[] = {
        {"1006 too early",
         [](std::vector<Bytes>& f) {
             f.insert(f.begin(),
                      ref::frame(ref::write1005({.type = 1006, .station = 4095, .xyzM = kSite})));
         },
         "message 1006 must not be there"},
        {"no end",
         [](std::vector<Bytes>& f) {
             f.pop_back();
             f.push_back(ref::frame(ref::write1007({1, "A", 0, "", "", "", ""})));
         },
         "without its last message"},
        {"a frame that is not forwarded",
         [](std::vector<Bytes>& f) {
             f.insert(f.begin(), ref::frame(ref::write1230(1, true, {1, 2, 3, 4})));
         },
         "type 1230 came unasked"},
    };
    const ref::Expectation e = completely(ref::Output::rtcm3);
    const Bytes stream = streamOf(7, 4);
    for (const auto& c : cases) {
        const ref::Verdict v = judge(stream, answersTo(stream, e, {}, c.spoil), e);
        EXPECT_TRUE(std::any_of(v.faults.begin(), v.faults.end(),
                                [&](const std::string& f) { return contains(f, c.found); }))
            << c.what << ": " << (v.faults.empty() ? "" : v.faults.front());
    }
    // the station's own values in the first block
    const Bytes sent = answersTo(stream, e);
    for (const ref::Frame& f : ref::goodFrames(sent)) {
        if (f.type == 1230) {
            EXPECT_EQ(f.bytes, ref::frame(ref::write1230(4095, true, {1, 2, 3, 4})));
        }
        if (f.type == 1006) {
            EXPECT_DOUBLE_EQ(ref::read1005(f.body).heightM, 1.2345);
        }
        if (f.type == 1033) {
            EXPECT_EQ(f.body, ref::write1033({4095, "ANTENNA B", 4, "B2", "RECEIVER", "FW", "R1"}));
        }
    }
}

// Geostationary: its orbit is written in axes tilted by 5 degrees.
TEST(CompleteAnswer, MovesC60AsAGeostationarySatellite) {
    ref::Kepler k;
    k.type = 1042;
    k.system = 'C';
    k.sqrtA = 6493.4;
    k.i0 = 5 * ref::kDegree;
    k.toe = k.toc = 430636;
    k.node = 180 * ref::kDegree + ref::earthRate('C') * k.toe;
    k.m0 = 90 * ref::kDegree;
    for (const auto& [id, zM] : {std::pair{5, 0.0}, {58, 3.675e6}, {60, 0.0}}) {
        k.id = id;
        EXPECT_NEAR(position(k, kNow)[2], zM, 1e4) << id;
    }
}

// Legacy messages, their fields typed here one by one.
TEST(CompleteAnswer, MakesMsm4OfLegacyMessages) {
    ref::BitString b;
    b.u(12, 1004).u(12, 1).u(30, kField).u(1, 1).u(5, 1).u(1, 1).u(3, 5);
    b.u(6, 7).u(1, 0).u(24, 5000000).s(20, -3000).u(7, 50).u(8, 70).u(8, 166);
    b.u(2, 2).s(14, 250).s(20, 4000).u(7, 127).u(8, 149);
    const auto gps = ref::received({0, {}, 1004, b.bytes()}, kNow);
    ASSERT_TRUE(gps);
    EXPECT_EQ(gps->raw.type, 1074);
    EXPECT_EQ(gps->raw.epochField, kField);
    EXPECT_EQ(gps->raw.smoothed, 1);
    EXPECT_EQ(gps->raw.smoothing, 5);
    ASSERT_EQ(gps->raw.cells.size(), 2U);
    EXPECT_EQ(gps->raw.signals, (std::vector<int>{2, 10})); // 1C, and 2W for what has no id
    EXPECT_EQ(gps->raw.cells[0].lock, 12);                  // 76 s: 65.536 s and more
    EXPECT_EQ(gps->raw.cells[1].lock, 15);                  // 937 s
    EXPECT_EQ(gps->raw.cells[0].cnr, 42);                   // 41.5
    EXPECT_EQ(gps->raw.cells[1].cnr, 37);                   // 37.25
    const double rangeM = 100000 + 70 * 299792.458;
    EXPECT_NEAR(*gps->whole[0].rangeMs * 299792.458, rangeM, 1e-6);
    EXPECT_NEAR(*gps->whole[0].phaseMs * 299792.458, rangeM - 1.5, 1e-6);
    EXPECT_NEAR(*gps->whole[1].rangeMs * 299792.458, rangeM + 5, 1e-6);
    EXPECT_NEAR(*gps->whole[1].phaseMs * 299792.458, rangeM + 2, 1e-6);

    // 2018-07-12, a Thursday, 23:37:12 UTC is 02:37:12 of Friday in Moscow; a time of day beyond
    // 24 h is that of Thursday.
    for (const auto& [tod, day] : {std::pair{9432000U, 5U}, {95832000U, 4U}}) {
        ref::BitString r;
        r.u(12, 1012).u(12, 1).u(27, tod).u(1, 0).u(5, 1).u(1, 0).u(3, 0);
        r.u(6, 3).u(1, 1).u(5, 8).u(25, 100).s(20, 0).u(7, 1).u(7, 35).u(8, 100);
        r.u(2, 3).s(14, 0).s(20, 0).u(7, 0).u(8, 0); // a reserved code on L2
        const auto glonass = ref::received({0, {}, 1012, r.bytes()}, kNow);
        ASSERT_TRUE(glonass);
        EXPECT_EQ(glonass->raw.type, 1084);
        EXPECT_EQ(glonass->raw.epochField, day << 27 | tod);
        EXPECT_EQ(glonass->raw.signals, std::vector<int>{3}); // 1P
        EXPECT_EQ(glonass->raw.cells.at(0).lock, 5);          // 1 s
        EXPECT_NEAR(*glonass->whole.at(0).rangeMs, 70 + 2 / 299792.458, 1e-9);
    }
}

// Runs: the messages of each, "*" behind one that ended by its bit.
TEST(CompleteAnswer, TakesRunsOfMessagesForEpochs) {
    const auto g = [](int s, bool more, int station = 1) {
        return piece(1077, kField + static_cast<std::uint32_t>(s) * 1000, more, station);
    };
    const auto e = [](int s, bool more, int station = 1) {
        return piece(1097, kField + static_cast<std::uint32_t>(s) * 1000, more, station);
    };
    const auto c = [](int s, bool more, int offset = 14) { // s behind GPS time
        return piece(1127, kField + static_cast<std::uint32_t>((s - offset) * 1000), more);
    };
    const auto gHalf = [](int id, bool more) { return piece(1077, kField, more, 1, id); };
    const auto refused = [](const Bytes& f) { return cut(f, 12); };
    const auto legacy = [](int id, bool more) { // 1004
        ref::Cell cell;
        cell.system = 'G';
        cell.id = id;
        cell.signal = "1C";
        cell.pseudorangeM = cell.phaseRangeM = 2.2e7;
        return ref::frame(ref::writeLegacy('G', 1, kField, more, {cell}));
    };
    const Bytes never = piece(1127, 700000000, false);
    const Bytes sbas = piece(1107, 85050000, true);
    const Bytes station = ref::frame(ref::write1005({.station = 1, .xyzM = kSite}));
    constexpr bool more = true;
    constexpr bool last = false;
    using Frames = std::vector<Bytes>;
    Frames early; // BeiDou 14 s ahead of what its field should say
    for (int i = 0; i < 5; ++i)
        for (const Bytes& f : {g(i, more), c(i, more, 0), e(i, last)})
            early.push_back(f);
    Frames broken = early; // an epoch that has no end, in the middle of learning
    broken.erase(broken.begin() + 5);
    Frames takenOver{g(0, more), e(0, last)};
    for (int i = 1; i < 6; ++i)
        for (const Bytes& f : {g(i, more, 2), e(i, last, 2)})
            takenOver.push_back(f);
    Frames mixed;
    for (int i = 0; i < 5; ++i)
        for (const Bytes& f : {g(i, more), g(i, more, 2), e(i, last, 2), e(i, last)})
            mixed.push_back(f);
    const struct {
        const char* what;
        Frames frames;
        const char* runs;
    } cases[] = {
        {"whole", {g(0, more), e(0, last), g(1, last)}, "1077 1097* 1077*"},
        {"station message between", {g(0, more), station, e(0, last)}, "1077 1097*"},
        {"number again", {g(0, more), g(0, more), e(0, last)}, "1077 | 1077 1097*"},
        {"another part", {gHalf(3, more), gHalf(4, more), e(0, last)}, "1077 1077 1097*"},
        {"first part refused",
         {g(0, more), refused(c(0, more)), c(0, more), e(0, last)},
         "1077 1127 1097*"},
        {"another part refused",
         {gHalf(3, more), refused(gHalf(4, more)), e(0, last)},
         "1077 | 1097*"},
        {"legacy, another part", {legacy(3, more), legacy(4, last)}, "1074 1074*"},
        {"legacy, number again", {legacy(3, more), legacy(3, last)}, "1074 | 1074*"},
        {"end lost", {g(0, more), g(1, more), e(1, last)}, "1077 | 1077 1097*"},
        {"end and number lost", {g(0, more), e(1, last)}, "1077 | 1097*"},
        {"time that no week has", {g(0, more), never, g(1, last)}, "1077* 1077*"},
        {"SBAS with the time of day", {g(0, more), sbas, e(0, last)}, "1077 1107 1097*"},
        {"learned after three", early,
         "1077 | 1127 | 1097* 1077 | 1127 | 1097* 1077 | 1127 | 1097* 1077 1127 1097* 1077 1127 "
         "1097*"},
        {"not learned across a lost end", broken,
         "1077 | 1127 | 1097* 1077 | 1127 | 1077 | 1127 | 1097* 1077 | 1127 | 1097* 1077 | 1127 | "
         "1097*"},
        {"another station between", mixed,
         "1077 1097* 1077 1097* 1077 1097* 1077 1097* 1077 1097*"},
        {"another station instead", takenOver, "1077 1097* 1077 1097* 1077 1097*"},
    };
    for (const auto& x : cases) {
        ref::Runs runs(kNow);
        std::string shown;
        for (const Bytes& f : x.frames)
            for (const ref::Run& run : runs.take(ref::goodFrames(f).at(0))) {
                for (const ref::ReceivedMessage& m : run.messages)
                    shown += (shown.empty() || shown.ends_with(' ') ? "" : " ") +
                             std::to_string(m.raw.type);
                shown += run.finished ? "* " : " | ";
            }
        while (shown.ends_with(' '))
            shown.pop_back();
        EXPECT_EQ(shown, x.runs) << x.what;
    }
}
