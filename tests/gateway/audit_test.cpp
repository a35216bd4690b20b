#include "service.h"

#include "gateway/station/Audit.h"
#include "reference/standard/kinds.h"
#include "reference/standard/sky.h"

#include <functional>

// What an audit says of the answers of the real engine, as they come and altered.

namespace {

using gateway::Audit;
using gateway::Block;
using ref::Bytes;

struct Answered {
    Bytes stream, answer;
};

int endsOf(const Bytes& bytes) {
    int count = 0;
    for (const ref::Frame& f : ref::goodFrames(bytes))
        if (const auto head = ref::headOf(f))
            count += head->more ? 0 : 1;
    return count;
}

const char* nameOf(ref::Answer answer) {
    return answer == ref::Answer::complete ? "complete" : "specified";
}

/// 15 epochs of MSM7 at the end of a week, one a second, and what the engine makes of them.
Answered answered(ref::Answer answer) {
    ref::Sky sky(kSite);
    sky.systems = "GREC";
    const ref::GpsTime start{2009, 604795};
    Answered out;
    const auto add = [&](const std::vector<Bytes>& frames) {
        for (const Bytes& f : frames)
            out.stream.insert(out.stream.end(), f.begin(), f.end());
    };
    add(sky.ephemerisFrames(start));
    // Another station speaks of itself before it is known whose stream this is.
    add({ref::frame(ref::write1033({9, "ANT", 3, "A1", "RECEIVER", "FW", "R1"}))});
    for (int i = 0; i < 15; ++i)
        add(sky.epochFrames(start + i * 1.0, 7));
    Peer peer;
    peer.listen();
    const RunningService service(
        peer.port, "2018-07-14 23:59:37",
        {.keys = {{"vrs",
                   std::string("\"output\": \"rtcm3\", \"answer\": \"") + nameOf(answer) + "\""}}});
    EXPECT_TRUE(peer.accept());
    out.answer = peer.exchange(out.stream, 4096, 1);
    while (endsOf(out.answer) < 15) {
        const int frames = wholeFrames(out.answer);
        out.answer = peer.exchange({}, 1, frames + 1, out.answer);
        if (wholeFrames(out.answer) == frames)
            break;
    }
    return out;
}

std::vector<Block> blocksOf(const Bytes& bytes) {
    gateway::Epochs epochs;
    epochs.take(bytes);
    std::vector<Block> out;
    while (auto block = epochs.next())
        out.push_back(std::move(*block));
    return out;
}

using Alter = std::function<void(std::vector<Block>& answer)>;

struct Outcome {
    gateway::AuditCounts counts;
    std::vector<std::string> lines;
    std::vector<std::string> troubles; // in order; empty where one has ended
    int epochs = 0;                    // that went on
    int positions = 0;                 // 1005 and 1006 that did
};

/// The audit hears the stream and the answer side by side, as a station does.
Outcome audited(const Answered& a, ref::Answer answer, const Alter& alter,
                bool ephemerides = true) {
    ref::Expectation terms = expectation();
    terms.answer = answer;
    Outcome out;
    Audit audit(terms, [&](Level, const std::string& line) { out.lines.push_back(line); });
    audit.connected(gateway::Engine::Process::started, {2009, 604795});
    std::vector<Block> answers = blocksOf(a.answer);
    alter(answers);
    std::size_t next = 0;
    gateway::Instant now{};
    for (const Block& sent : blocksOf(a.stream)) {
        Bytes bytes;
        for (const ref::Frame& f : ref::goodFrames(sent.bytes))
            if (ephemerides || !ref::isEphemeris(f.type))
                bytes.insert(bytes.end(), f.bytes.begin(), f.bytes.end());
        audit.sent(bytes);
        if (sent.kind != Block::Kind::epoch)
            continue;
        now += std::chrono::seconds(5);
        for (bool epoch = false; next < answers.size() && !epoch; ++next) {
            epoch = answers[next].kind == Block::Kind::epoch;
            for (const Block& on : audit.take(answers[next], now)) {
                out.epochs += on.kind == Block::Kind::epoch ? 1 : 0;
                for (const ref::Frame& f : ref::goodFrames(on.bytes))
                    out.positions += f.type == 1005 || f.type == 1006 ? 1 : 0;
            }
            if (audit.trouble().empty() != (out.troubles.empty() || out.troubles.back().empty()))
                out.troubles.push_back(audit.trouble());
        }
    }
    out.counts = audit.counts();
    return out;
}

/// Changes the frames of one block.
template <class Change> Alter frames(std::size_t epoch, Block::Kind kind, const Change& change) {
    return [=](std::vector<Block>& answer) {
        std::size_t number = 0;
        for (Block& block : answer) {
            if (block.kind != kind || number++ != epoch)
                continue;
            Bytes out;
            for (const ref::Frame& f : ref::goodFrames(block.bytes)) {
                const Bytes frame = change(f);
                out.insert(out.end(), frame.begin(), frame.end());
            }
            block.bytes = out;
        }
    };
}
/// Changes the message of GPS in the sixth epoch.
template <class Change> Alter gps(const Change& change) {
    return frames(5, Block::Kind::epoch, [=](const ref::Frame& f) {
        if (f.type / 10 != 107)
            return f.bytes;
        ref::RawMsm raw = ref::readRawMsm(f.body);
        change(raw);
        return ref::frame(ref::writeRawMsm(raw));
    });
}

} // namespace

TEST(Audit, FindsNothingWrongWithTheEngineAndComparesAll) {
    for (const ref::Answer answer : {ref::Answer::complete, ref::Answer::specified}) {
        const Answered a = answered(answer);
        const Outcome o = audited(a, answer, [](auto&) {});
        EXPECT_EQ(o.counts.epochs, 15U) << nameOf(answer);
        EXPECT_EQ(o.epochs, 15);
        EXPECT_EQ(o.positions, 2);
        EXPECT_GT(o.counts.values, 15U * 60);
        EXPECT_EQ(o.counts.notCompared + o.counts.notAudited + o.counts.wrongEpochs +
                      o.counts.wrongMessages,
                  0U);
        EXPECT_TRUE(o.lines.empty()) << o.lines.front();
        EXPECT_TRUE(o.troubles.empty()) << o.troubles.front();
    }
}

TEST(Audit, FindsWhatIsWrongAndSendsItToNobody) {
    const Answered complete = answered(ref::Answer::complete);
    const Answered specified = answered(ref::Answer::specified);
    const auto fiveMillimetres = [](ref::RawMsm& m) {
        const ref::MsmForm& form = ref::msmForm(m.type % 10);
        m.cells.at(3).phase +=
            static_cast<int>(std::lround(0.005 / (ref::kMsM * std::ldexp(1.0, form.phaseExp))));
    };
    struct Case {
        const char* what;
        Alter alter;
        const char* line;
        int epochs = 14;
        int positions = 2;
    };
    const Case cases[] = {
        {"5 mm of phase", gps(fiveMillimetres), " phase"},
        {"another satellite", gps([](ref::RawMsm& m) {
             const int from = m.satellites.back().id;
             int to = 32;
             while (to == from)
                 --to;
             m.satellites.back().id = to;
             for (auto& c : m.cells)
                 c.id = c.id == from ? to : c.id;
         }),
         "G"},
        {"a missing cell", gps([](ref::RawMsm& m) { m.cells.erase(m.cells.begin() + 3); }),
         " is missing"},
        {"an invented cell", gps([](ref::RawMsm& m) {
             ref::RawMsm::Cell c = m.cells.front();
             c.signal = 9; // 2P, which the stream does not have
             m.signals.insert(std::upper_bound(m.signals.begin(), m.signals.end(), 9), 9);
             m.cells.insert(m.cells.begin() + 1, c);
         }),
         " must not be there"},
        {"an epoch that came before",
         [](std::vector<Block>& answer) {
             std::vector<std::size_t> epochs;
             for (std::size_t i = 0; i < answer.size(); ++i)
                 if (answer[i].kind == Block::Kind::epoch)
                     epochs.push_back(i);
             answer[epochs[5]] = answer[epochs[2]];
         },
         "an epoch comes that the stream has not asked for: it is -3.000 s later"},
        {"another position",
         [](std::vector<Block>& answer) {
             for (Block& block : answer) {
                 Bytes out;
                 for (const ref::Frame& f : ref::goodFrames(block.bytes)) {
                     ref::Station1005 s;
                     if (f.type == 1005) {
                         s = ref::read1005(f.body);
                         s.xyzM[2] += 1;
                     }
                     const Bytes frame = f.type == 1005 ? ref::frame(ref::write1005(s)) : f.bytes;
                     out.insert(out.end(), frame.begin(), frame.end());
                 }
                 block.bytes = out;
             }
         },
         "1005 says", 13, 0},
        {"an ephemeris that nobody sent",
         [](std::vector<Block>& answer) {
             Bytes& bytes = answer.front().bytes;
             const ref::Frame first = ref::goodFrames(bytes).front();
             Bytes body = first.body;
             body[20] ^= 1;
             const Bytes frame = ref::frame(body);
             std::copy(frame.begin(), frame.end(), bytes.begin());
         },
         "comes that is none of the stream's", 15},
    };
    for (const ref::Answer answer : {ref::Answer::complete, ref::Answer::specified})
        for (const Case& c : cases) {
            const bool full = answer == ref::Answer::complete;
            const Outcome o = audited(full ? complete : specified, answer, c.alter);
            const std::string where = std::string(nameOf(answer)) + ", " + c.what;
            EXPECT_EQ(o.epochs, c.epochs) << where;
            EXPECT_EQ(o.positions, c.positions) << where;
            EXPECT_EQ(o.counts.wrongEpochs, 15U - static_cast<unsigned>(c.epochs)) << where;
            EXPECT_TRUE(o.lines.empty()) << where << o.lines.front();
            ASSERT_GE(o.troubles.size(), 1U) << where;
            EXPECT_NE(o.troubles.front().find(c.line), std::string::npos)
                << where << o.troubles.front();
            if (c.positions == 2) { // the other one is the last but four
                ASSERT_EQ(o.troubles.size(), 2U) << where;
                EXPECT_EQ(o.troubles.back(), "");
            }
        }
}

TEST(Audit, CountsWhatItCannotCompare) {
    for (const ref::Answer answer : {ref::Answer::complete, ref::Answer::specified}) {
        const Answered a = answered(answer);
        const auto without = [](auto drops) {
            return [=](std::vector<Block>& blocks) {
                for (Block& block : blocks) {
                    Bytes out;
                    for (const ref::Frame& f : ref::goodFrames(block.bytes))
                        if (!drops(f))
                            out.insert(out.end(), f.bytes.begin(), f.bytes.end());
                    block.bytes = out;
                }
            };
        };
        // The engine has ephemerides of an earlier time: they have not come this time.
        const Outcome warm = audited(
            a, answer, without([](const ref::Frame& f) { return ref::isEphemeris(f.type); }),
            /*ephemerides=*/false);
        EXPECT_EQ(warm.epochs, 15) << nameOf(answer);
        EXPECT_EQ(warm.counts.notAudited, 15U);
        EXPECT_EQ(warm.counts.values + warm.counts.wrongEpochs, 0U);
        EXPECT_GT(warm.counts.notCompared, 15U * 60);
        ASSERT_EQ(warm.lines.size(), 1U);
        EXPECT_NE(warm.lines.front().find("are not audited"), std::string::npos);

        // It has refused one, and so does not pass it on.
        std::set<int> refused;
        const Outcome one = audited(a, answer, without([&](const ref::Frame& f) {
                                        return f.type == 1045 && refused.insert(f.type).second;
                                    }));
        EXPECT_EQ(one.epochs, 15) << nameOf(answer);
        EXPECT_EQ(one.counts.wrongEpochs, 0U);
        EXPECT_GT(one.counts.values, 15U * 40);
    }
}
