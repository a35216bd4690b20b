#include "compare.h"

#include <algorithm>
#include <cmath>
#include <iomanip>
#include <sstream>

namespace ref {

namespace {

constexpr double kPositionBoundM = 2e-4; // steps of 1005 are 1e-4

std::string coordinates(const Vec3& xyzM) {
    std::ostringstream out;
    out << std::fixed << std::setprecision(4) << xyzM[0] << " " << xyzM[1] << " " << xyzM[2];
    return out.str();
}

// What stands in front of the observations: 1005 or 1006, then 1033.
class StationComparison {
public:
    StationComparison(const std::vector<Frame>& came, const Expected& expected,
                      const Predictor& owes, ComparedAnswer& out)
        : came_(came), expected_(expected), owes_(owes), out_(out) {}

    // How many messages.
    std::size_t compare(StationPart part) {
        const bool height = owes_.expectation.output == Output::rtcm3 && expected_.antennaHeightM;
        const int type = height ? 1006 : 1005;
        if (part == StationPart::none || (part == StationPart::mayCome && !begins()))
            return 0;
        if (comesNext(type))
            position(type, height ? *expected_.antennaHeightM : 0);
        else
            differ(Trouble::noPosition, std::to_string(type) + " is missing");
        if (!comesNext(1033))
            differ(Trouble::descriptors, "1033 is missing");
        else if (came_[at_++].body != write1033(expected_.equipment))
            differ(Trouble::descriptors, "station message 1033");
        return at_;
    }

private:
    bool comesNext(int type) const { return at_ < came_.size() && came_[at_].type == type; }
    bool begins() const { return comesNext(1005) || comesNext(1006) || comesNext(1033); }
    void differ(Trouble what, std::string words) {
        out_.differences.push_back({what, std::move(words)});
    }

    // Where values are not known nothing is wrong with a position.
    void position(int type, double heightM) {
        const Bytes& body = came_[at_++].body;
        const Station1005 station = read1005(body);
        if (body != write1005({.type = type,
                               .station = kVirtualStation,
                               .xyzM = station.xyzM,
                               .heightM = heightM}))
            differ(Trouble::messages, "station message " + std::to_string(type));
        out_.positionM = station.xyzM;
        const double awayM = norm(station.xyzM - owes_.virtualAt);
        if (owes_.expectation.siteKnown && owes_.expectation.values && !(awayM <= kPositionBoundM))
            differ(Trouble::position, "1005 says " + coordinates(station.xyzM) + " instead of " +
                                          coordinates(owes_.virtualAt) + ", " + secondsText(awayM) +
                                          " m away");
    }

    const std::vector<Frame>& came_;
    const Expected& expected_;
    const Predictor& owes_;
    ComparedAnswer& out_;
    std::size_t at_ = 0;
};

} // namespace

std::string secondsText(double s) {
    std::ostringstream out;
    out << std::fixed << std::setprecision(3) << s;
    return out.str();
}

double lateS(const Msm& m, GpsTime t) {
    const bool day = m.system == 'R'; // DF416, the day of the week, does not count
    const std::uint32_t mask = day ? 0x7FFFFFF : ~0U;
    const std::uint32_t want = epochField(m.system, t) & mask;
    const double lateS =
        (static_cast<double>(m.epochField & mask) - static_cast<double>(want)) * 1e-3;
    return std::remainder(lateS, day ? 86400 : kWeekS);
}

ComparedAnswer compareAnswer(const std::vector<Frame>& came, const Expected& expected,
                             const Predictor& owes, StationPart station) {
    ComparedAnswer out;
    try {
        const std::size_t first = StationComparison(came, expected, owes, out).compare(station);
        const std::span messages = std::span(came).subspan(first);
        if (owes.expectation.answer == Answer::complete)
            compareComplete(messages, expected, owes.expectation, out);
        else
            compareSpecified(messages, expected, owes.expectation, out);
    } catch (const std::exception& e) {
        out.differences.push_back(
            {Trouble::brokenReply, std::string("a message of the reply: ") + e.what()});
    }
    return out;
}

bool answersEpoch(const Msm& head, const Expected& expected, const Expectation& terms) {
    if (terms.answer == Answer::specified)
        return sameEpoch(head, expected.time, terms);
    return std::any_of(
        expected.messages.begin(), expected.messages.end(), [&](const DueMessage& d) {
            return d.from.raw.type == head.type && d.from.raw.epochField == head.epochField;
        });
}

} // namespace ref
