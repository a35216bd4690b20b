#pragma once

#include "gnss/GTime.h"
#include "rtcm/ReceivedEpoch.h"

#include <array>
#include <cstddef>
#include <optional>
#include <vector>

/// EpochRun: which messages of a stream are one epoch, and of one station, for answers that carry
/// all that came. What a head says decides about runs, what a body holds about contents.

class UsualDifferences;

/// Whether an epoch may have the time of a system's messages. A receiver in use sends the time of
/// day for SBAS.
bool dates(System system);

/// The heads of the messages of a run.
class RunHeads {
public:
    bool empty() const { return heads_.empty(); }
    bool full() const { return heads_.size() >= kMost; }
    void add(const EpochMessage& m) { heads_.push_back(m); }
    void clear() { heads_.clear(); }

    /// The first message of that number; null where there is none.
    const EpochMessage* find(int type) const;
    /// Whether a message has another time than the run.
    bool otherTime(const EpochMessage& m, const UsualDifferences& usual) const;
    /// The time of the message that dates the run; nothing where none does.
    std::optional<GTime> time(const UsualDifferences& usual) const;
    int stationId() const { return heads_.front().staid; }

private:
    static constexpr std::size_t kMost = 64;
    std::vector<EpochMessage> heads_;
};

/// By how much the times of a system lie beside those of the system that dates an epoch (GPS, else
/// Galileo, QZSS, BDS, GLONASS): 0, until three whole groups of messages in a row show another
/// constant, which is told. A group is what comes from one end of an epoch to the next; a number
/// that comes again with another time shows that an end was lost.
class UsualDifferences {
public:
    /// Seconds that the system's times are ahead.
    double of(System system) const;
    /// A message of the group.
    void add(const EpochMessage& m);
    void endGroup();
    /// Forgets the group, and how many showed a difference.
    void breakGroup();

private:
    struct Row {
        std::optional<GTime> time; // of the first message in the group
        double usualS = 0.0;
        double shownS = 0.0;
        int shown = 0; // groups in a row
    };
    std::array<Row, kMsmSystems.size()> rows_; // as kMsmSystems
    RunHeads group_;
};

/// Whose messages count where several stations share a stream: those of the station that first has
/// an epoch with its end, until another one has had three epochs without a message of it between.
class StreamStation {
public:
    /// Whether a message counts where that station's do. One that does not may end the third epoch
    /// of another station: then `rival()` is that one.
    bool counts(const EpochMessage& m, int own);
    /// A run of the station that counts has ended, `whole` with its own end.
    void runEnded(int id, bool whole);
    /// The id; nothing while there is none.
    std::optional<int> id() const { return id_; }

    /// A station that is to be the stream's.
    std::optional<int> rival() const;
    void takeOver();
    /// The rival may not; it is one again after three more epochs.
    void refuseRival() { other_.epochs = 0; }

private:
    struct Candidate {
        int id = -1;
        int epochs = 0; // in a row
    };
    void lookAtOther(const EpochMessage& m);

    std::optional<int> id_;
    Candidate first_; // before there is an id
    Candidate other_;
    RunHeads otherRun_;
};

/// The epoch that is being collected.
class EpochRun {
public:
    /// Reads the body of a message; false where it is refused.
    bool read(const EpochMessage& m, BitReader message);
    /// Whether the run ends, without its end, before the message that was read last.
    bool endsBefore(const EpochMessage& m) const;
    /// Takes that message into the run, its contents where it was not refused.
    void take(const EpochMessage& m);
    /// What was taken, with its time (unknown where no message dates it), for when the run ends.
    const ReceivedEpoch& ended();
    const ReceivedEpoch& epoch() const { return epoch_; }
    enum class Ended { unfinished, whole };
    /// Begins the next run; a message that was read and not taken may be the first of it.
    void begin(Ended before);
    /// Forgets what is unfinished; of another station also what is usual.
    void drop();
    void forgetStation() { *this = {}; }

    bool empty() const { return heads_.empty(); }
    /// Of a run that is not empty.
    int stationId() const { return heads_.stationId(); }

private:
    bool repeats(const EpochMessage& m) const;

    ReceivedEpoch epoch_;
    RunHeads heads_;
    UsualDifferences usual_;
    bool readWhole_ = false; // the message that was read last
};
