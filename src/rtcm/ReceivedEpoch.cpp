#include "rtcm/ReceivedEpoch.h"

#include "rtcm/Messages.h"

#include <utility>

namespace {

/// The MSM of a row; what is not read of one without cells is as in a new one.
MsmMessage& emptyMsm(ReceivedMessage& row) {
    MsmMessage* const held = std::get_if<MsmMessage>(&row.body);
    MsmMessage& m = held ? *held : row.body.emplace<MsmMessage>();
    m.cellMask = 0;
    return m;
}

} // namespace

bool ReceivedEpoch::read(const EpochMessage& head, BitReader in) {
    if (count_ == rows_.size())
        rows_.emplace_back();
    ReceivedMessage& row = rows_[count_];
    row.head = head;
    if (isLegacy(head.type))
        layoutLegacy(in, row.body.emplace<LegacyMessage>());
    else
        layoutMsm(in, emptyMsm(row));
    pending_ = in.ok();
    return pending_;
}

void ReceivedEpoch::takeLastRead() {
    ++count_;
    pending_ = false;
}

void ReceivedEpoch::clear() {
    if (pending_ && count_ > 0)
        std::swap(rows_.front(), rows_[count_]);
    count_ = 0;
}

void decodeEpoch(RtcmState& s, const ReceivedEpoch& epoch) {
    s.obs.n = 0;
    s.time = s.epoch = epoch.time;
    for (const ReceivedMessage& m : epoch.messages()) {
        EpochMessage head = m.head;
        head.time = epoch.time;
        if (const auto* const msm = std::get_if<MsmMessage>(&m.body))
            storeMsm(s, *msm, head);
        else
            storeLegacy(s, std::get<LegacyMessage>(m.body), head);
    }
    s.epoch = {};
}
