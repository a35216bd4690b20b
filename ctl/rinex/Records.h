#pragma once

#include <array>
#include <cstdint>
#include <fstream>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

/// Records: what the service saves with -rawsav (rinex/Rnxobs), epochs without a header, read back
/// by their columns. Values stay the text that they are. GPS time.

namespace ctl::rinex {

/// Instants count from the beginning of MJD 0, in steps of the last decimal of an epoch.
inline constexpr std::int64_t kTicksPerSecond = 10'000'000;
inline constexpr std::int64_t kTicksPerDay = 86400 * kTicksPerSecond;

inline constexpr std::size_t kValueWidth = 14; // F14.3
inline constexpr std::size_t kFieldWidth = 16; // with the loss of lock and the strength

/// Where a line begins.
struct Place {
    std::int64_t offset = 0;
    int line = 1;
};

/// The lines of a file, which are given cut at kLongest bytes.
class Lines {
public:
    static constexpr std::size_t kLongest = 512;

    /// std::runtime_error where the file cannot be read.
    explicit Lines(const std::string& path);

    bool next();
    std::string_view line() const { return line_; }
    Place place() const { return place_; }
    /// The next line is the one there.
    void goTo(Place place);

private:
    bool fill();

    std::string path_;
    std::ifstream file_;
    std::array<char, 65536> block_{};
    std::int64_t blockOffset_ = 0; // of the block in the file
    std::size_t at_ = 0;
    std::size_t held_ = 0;
    std::string line_;
    Place place_;
    int nextLine_ = 1;
};

/// A line of an epoch: the fields of its system's columns, all of them good.
struct SatelliteLine {
    std::string name;
    std::string fields;

    std::string_view value(std::size_t column) const {
        return std::string_view(fields).substr(kFieldWidth * column, kValueWidth);
    }
};
/// The records write 0 for what is not there.
bool isNothing(std::string_view value);

struct Record {
    std::int64_t ticks = 0;
    Place place; // of its first line
    std::vector<SatelliteLine> satellites;
};

/// What is left out, and why.
struct Fault {
    std::string file;
    int line = 0;
    std::string text;
};

class Records {
public:
    using Faults = std::function<void(const Fault&)>;

    /// std::runtime_error where the file cannot be read.
    Records(const std::string& path, Faults faults)
        : path_(path), lines_(path), faults_(std::move(faults)) {}

    /// The next epoch that has a time; std::runtime_error where the file has a header.
    bool next(Record& out);
    void goTo(Place place) {
        lines_.goTo(place);
        unread_ = false;
    }

private:
    bool toLine() { return unread_ || (unread_ = lines_.next()); }
    void readSatellites(Record& out, int expected);
    void readSatellite(Record& out);
    void passOver(const std::string& why);
    void fault(int line, const std::string& text) { faults_({path_, line, text}); }

    std::string path_;
    Lines lines_;
    Faults faults_;
    bool unread_ = false; // the line of lines_
};

} // namespace ctl::rinex
