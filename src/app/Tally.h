#pragma once

#include "gnss/Session.h"
#include "rtcm/CellMasks.h"
#include "rtcm/layouts/Msm.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string_view>
#include <vector>

/// Tally: which signals came, which were answered, and why others were not, by the heads of
/// observation messages. Most epochs of a system have the satellites and signals of the one before:
/// they are only counted, and looked at once something is different or somebody asks.

/// Why an observation is in no answer.
enum class Dropped : std::uint8_t {
    satellite,   // none of it is answered
    epoch,       // not answered
    otherSignal, // of the same carrier
    value,       // it has no range or no phase, or there is no place for it
    twice,       // it came more than once
    notInList,
    noCarrier,
    unknown
};
inline constexpr std::array<std::string_view, 8> kDroppedTexts{"satellite not answered",
                                                               "epoch not answered",
                                                               "another signal took its carrier",
                                                               "no value or place",
                                                               "came twice",
                                                               "not in the reply's list",
                                                               "carrier not in use",
                                                               "unknown"};

struct SignalCount {
    std::uint64_t received = 0, answered = 0;
    std::array<std::uint64_t, kDroppedTexts.size()> dropped{};
};

/// Of each system, as kMsmSystems; bit 63 = MSM id 1.
using Satellites = std::array<std::uint64_t, kMsmSystems.size()>;

class Tally {
public:
    explicit Tally(const Session& session);

    /// An observation message that came, in a whole frame. Others add nothing.
    void received(std::span<const std::uint8_t> frame);
    /// One of an answer.
    void answered(std::span<const std::uint8_t> frame);
    /// Whether nothing came since the last epoch, or was answered.
    bool empty() const;
    bool answeredNone() const;
    /// What came since the last epoch is one. Some have no answer whatever they hold.
    enum class Answer : bool { none, byObservation };
    void endEpoch(Answer answer);

    /// Brings the counts up to the last epoch.
    void settle();
    SignalCount count(std::size_t system, std::size_t signal) const;
    /// Of the last epoch.
    Satellites seen() const;
    Satellites answered() const;

private:
    using Masks = std::vector<CellMasks>;
    /// A system in an epoch.
    struct Epoch {
        Masks in, out;
        Answer answer = Answer::byObservation;
        bool operator==(const Epoch&) const = default;
    };
    using Epochs = std::array<Epoch, kMsmSystems.size()>;
    /// Of a system in an epoch: the satellites that have a signal, message by message.
    struct Row {
        std::size_t signal;
        std::uint64_t satellites;
    };
    using Rows = std::vector<Row>;
    struct Signal {
        std::optional<Dropped> always; // whatever satellite it is of
        int slot = -1;
    };
    struct Sums : SignalCount {
        std::uint64_t found = 0; // those that came and have an answer of their name
    };

    using Side = Masks Epoch::*;
    static void add(Epochs& to, Side side, std::span<const std::uint8_t> frame);
    static Satellites satellitesOf(const Epochs& epochs, Side side);
    static void expand(const Masks& messages, Rows& rows);
    void settle(std::size_t system);
    void settleLacking(std::size_t system, const Row& row, std::uint64_t lacking);

    std::array<std::array<Signal, kMsmSignals + 1>, kMsmSystems.size()> signals_;
    Epochs now_, last_; // what is being counted, and the last epoch
    std::array<std::uint64_t, kMsmSystems.size()> times_{}; // epochs like that are not in the sums
    Rows inRows_, outRows_;                                 // of a system that is being settled
    std::array<std::array<Sums, kMsmSignals + 1>, kMsmSystems.size()> sums_{};
};

/// "GRESJCI", by system.
inline constexpr std::string_view kMsmLetters = "GRESJCI";
/// Satellite number of an MSM id; 0 = none.
int satelliteOf(std::size_t system, int id);
