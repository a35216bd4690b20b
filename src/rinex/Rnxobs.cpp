#include "rinex/Rnxobs.h"

#include "base/ComText.h"
#include "base/Findings.h"
#include "base/Print.h"
#include "base/Signals.h"
#include "gnss/ComTime.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

constexpr double kVersion = 3.1;
constexpr double kLowestVersion = 3.0;

/// Types by system, in column order. Deliberate: Galileo has no band 7, and QZSS, SBAS and IRNSS
/// have no columns at all.
constexpr std::array<std::string_view, 20> kBdsTypes{"C1", "L1", "D1", "S1", "C2", "L2", "D2",
                                                     "S2", "C6", "L6", "D6", "S6", "C7", "L7",
                                                     "D7", "S7", "C8", "L8", "D8", "S8"};
constexpr std::array<std::string_view, 12> kGpsTypes{"C1", "L1", "D1", "S1", "C2", "L2",
                                                     "D2", "S2", "C5", "L5", "D5", "S5"};
constexpr std::array<std::string_view, 8> kGlonassTypes{"C1", "L1", "D1", "S1",
                                                        "C2", "L2", "D2", "S2"};
constexpr std::array<std::string_view, 16> kGalileoTypes{
    "C1", "L1", "D1", "S1", "C6", "L6", "D6", "S6", "C8", "L8", "D8", "S8", "C5", "L5", "D5", "S5"};
constexpr std::size_t kMostColumns = kBdsTypes.size();

/// Adds printf-style text of at most 63 characters.
[[gnu::format(printf, 2, 3)]] void add(std::string& out, const char* format, ...) {
    std::array<char, 64> piece{};
    std::va_list args;
    va_start(args, format);
    std::vsnprintf(piece.data(), piece.size(), format, args);
    va_end(args);
    out += piece.data();
}

/// One satellite's line: its values in the columns of its system, 0 where there is none.
void addSatellite(std::string& out, const Session& session, std::size_t satellite,
                  const EpochObs& epoch) {
    const std::string& name = session.satelliteNames[satellite];
    const std::span<const std::string_view> types = Rnxobs_m_initObsType(name.front());
    std::array<double, kMostColumns> row{};
    const auto put = [&](char letter, std::uint8_t code, double value) {
        const std::string_view signal = code2obs(code);
        if (signal.empty())
            return;
        const std::array type{letter, signal[0]};
        if (const int at = pointer_string_obstyp(types, {type.data(), type.size()}); at >= 0)
            row[static_cast<std::size_t>(at)] = value + 0.0; // a minus zero loses its sign
    };
    const auto system = systemIndex(name.front());
    for (std::size_t f = 0; f < session.frequencies[system].size(); ++f) {
        const SlotObs& obs = epoch.at(satellite, f);
        put('L', obs.phaseType, obs.phase);
        put('C', obs.rangeType, obs.range);
        put('D', obs.rangeType, static_cast<double>(obs.doppler));
        put('S', obs.rangeType, obs.cn0);
    }
    out += name;
    for (std::size_t i = 0; i < types.size(); ++i)
        add(out, "%14.3lf  ", row[i]);
    out += " \n";
}

/// The epoch record, as long as `count` satellites have observations.
std::string recordOf(const RinexWriter& writer, int mjd, double sod, int count) {
    const DateTime t = mjd2date(mjd, sod);
    std::string out;
    add(out, "> %4d %2d %2d %2d %2d %10.7lf%3d%3d\n", t.year, t.month, t.day, t.hour, t.minute,
        t.second, 0, count);
    for (std::size_t i = 0; i < writer.session->satelliteNames.size(); ++i)
        if (writer.obs->has(i))
            addSatellite(out, *writer.session, i, *writer.obs);
    return out;
}

int satellitesOf(const RinexWriter& writer) {
    int count = 0;
    for (std::size_t i = 0; i < writer.session->satelliteNames.size(); ++i)
        count += writer.obs->has(i) ? 1 : 0;
    return count;
}

/// A file that is closed with its scope. A link is refused: it could lead out of the folder.
class OutFile {
public:
    explicit OutFile(const std::string& name)
        : fd_(open(name.c_str(), O_RDWR | O_APPEND | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0666)) {}
    ~OutFile() {
        if (fd_ >= 0)
            close(fd_);
    }
    OutFile(const OutFile&) = delete;
    OutFile& operator=(const OutFile&) = delete;

    bool isOpen() const { return fd_ >= 0; }
    /// Appends a record and forces it to the disk, or leaves the file as it was; the reason, empty
    /// where all went well. A signal that ends the process waits until the record is whole or gone,
    /// but not for the disk.
    std::string append(const std::string& record) const {
        struct stat before {};
        if (fstat(fd_, &before) != 0)
            return std::strerror(errno);
        {
            const SignalsHeld untilWholeOrGone;
            const ssize_t n = write(fd_, record.data(), record.size());
            if (n < 0)
                return std::strerror(errno);
            if (n != static_cast<ssize_t>(record.size()))
                return text("no room for more than %zd bytes", n) + takeBack(before.st_size, n);
        }
        printFlush(); // the disk may take long
        if (fsync(fd_) == 0)
            return {};
        const std::string reason = std::strerror(errno);
        return reason + takeBack(before.st_size, static_cast<ssize_t>(record.size()));
    }

private:
    /// Cuts the file back to its length before; what to say where that fails.
    std::string takeBack(off_t length, ssize_t added) const {
        if (added <= 0 || ftruncate(fd_, length) == 0)
            return {};
        return text(",%zd bytes of it could not be taken back", added);
    }

    int fd_;
};

int notWritten(const RinexWriter& writer, const std::string& reason) {
    print(Lasting{Cause::recordNotWritten}, "***WARN(Rnxobs): file = %s,epoch is not written,%s\n",
          writer.fileName.c_str(), reason.c_str());
    return -1;
}

} // namespace

void Rnxobs_initial(RinexWriter& writer) {
    writer = {};
}

int Rnxobs_v_outFileObs(RinexWriter& writer, int mjd, double sod) {
    if (mjd != writer.mjd) {
        writer.mjd = mjd;
        Rnxobs_v_openOutFile(writer, text("%d:%d", mjd, static_cast<int>(sod)), kVersion);
    }
    if (writer.version < kLowestVersion) {
        print(" don't support Rinex v2 !");
        return -1;
    }
    return Rnxobs_m_outputObs_v3x(mjd, writer, sod);
}

void Rnxobs_v_openOutFile(RinexWriter& writer, std::string_view time, double version) {
    int mjd = 0;
    TextScanner(time.substr(0, time.find(':'))).integer(mjd);
    const YearDoy day = mjd2doy(mjd);
    writer.fileName = text("%s/%4s%03d0.%02do", writer.folder->path.c_str(),
                           toLower(writer.station).c_str(), day.doy, day.year - 2000);
    print(Level::debug, "outfile: %s\n", writer.fileName.c_str());
    writer.version = version;
    Rnxobs_v_outFileHeader(writer);
}

void Rnxobs_v_outFileHeader(const RinexWriter& writer) {
    if (writer.version < kLowestVersion)
        print(" NOT SUPPORT!");
}

int Rnxobs_m_outputObs_v3x(int mjd, RinexWriter& writer, double sod) {
    const OutFile file(writer.fileName);
    if (!file.isOpen() && !writer.folder->used)
        fatal("****ERROR(Rnxobs): file = %s,can't access out file", writer.fileName.c_str());
    if (!file.isOpen())
        return notWritten(writer, std::strerror(errno));
    writer.folder->used = true;
    const int count = satellitesOf(writer);
    if (!writer.written && count == 0)
        return 0;
    writer.written = true;
    const std::string reason = file.append(recordOf(writer, mjd, sod, count));
    return reason.empty() ? 0 : notWritten(writer, reason);
}

std::span<const std::string_view> Rnxobs_m_initObsType(char system) {
    switch (system) {
    case 'C':
        return kBdsTypes;
    case 'G':
        return kGpsTypes;
    case 'R':
        return kGlonassTypes;
    case 'E':
        return kGalileoTypes;
    default:
        return {};
    }
}

int pointer_string_obstyp(std::span<const std::string_view> types, std::string_view name) {
    const auto it = std::find(types.begin(), types.end(), name);
    return name.empty() || it == types.end() ? -1 : static_cast<int>(it - types.begin());
}
