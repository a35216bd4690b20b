#include "base/Findings.h"
#include "ctl/check/Advice.h"
#include "ctl/dump/FrameScanner.h"
#include "gateway/net/LooksLike.h"
#include "gateway/net/Program.h"
#include "gateway/settings/Certificate.h"
#include "gateway/settings/Examine.h"
#include "gnss/Clock.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <fstream>
#include <optional>
#include <string>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

namespace gateway {

namespace {

namespace fs = std::filesystem;

/// Why a file cannot be read by this user; nothing where it can.
std::optional<std::string> unreadable(const fs::path& path) {
    struct stat status {};
    if (stat(path.c_str(), &status) != 0)
        return ctl::check::reasonWith(path, std::strerror(errno));
    if (!S_ISREG(status.st_mode))
        return "is no file";
    if (access(path.c_str(), R_OK) != 0)
        return std::strerror(errno);
    return std::nullopt;
}

/// The folder that a path is in; "." where it names none.
fs::path folderOf(const fs::path& path) {
    return path.has_parent_path() ? path.parent_path() : ".";
}

/// Why this user cannot make a file in the folder: it makes one and removes it, for rights alone do
/// not say it of root, of /proc and of a disk that can only be read. Nothing where it can.
std::optional<std::string> unwritable(const fs::path& folder) {
    std::string name = (folder / ".kestrune-XXXXXX").string();
    const int file = mkostemp(name.data(), O_CLOEXEC);
    if (file < 0)
        return folder.string() + ": " + std::strerror(errno);
    close(file);
    unlink(name.c_str());
    return std::nullopt;
}

/// The same of a folder that will be made where it is missing.
std::optional<std::string> unmakable(fs::path folder) {
    std::error_code error;
    while (!fs::exists(folder, error) && folder.has_relative_path())
        folder = folderOf(folder);
    return unwritable(folder);
}

constexpr std::size_t kPiece = std::size_t{1} << 16; // of a recording, bytes
constexpr std::size_t kMostPieces = 16;

/// What is wrong with a recording, by what stands before its first message, or its first MiB.
struct RecordingFault {
    bool fatal = false;
    std::string wrong;
};
std::optional<RecordingFault> faultOfRecording(const fs::path& path) {
    std::ifstream file(path, std::ios::binary);
    ctl::dump::FrameScanner scanner(ctl::dump::FrameScanner::Replies::kIgnore);
    std::vector<std::uint8_t> piece(kPiece);
    std::string like;
    for (std::size_t i = 0; i < kMostPieces && file; ++i) {
        file.read(reinterpret_cast<char*>(piece.data()), std::streamsize{kPiece});
        piece.resize(static_cast<std::size_t>(file.gcount()));
        if (i == 0 && piece.empty())
            return RecordingFault{false, "is empty"};
        if (i == 0)
            like = looksLike(piece);
        scanner.feed(piece);
        if (!file)
            scanner.end();
        while (const auto found = scanner.next())
            if (found->kind == ctl::dump::Found::kMessage && found->good)
                return std::nullopt;
    }
    return RecordingFault{true, std::string("holds no RTCM 3 message") +
                                    (file ? " in its first MiB" : "") +
                                    (like.empty() ? "" : ": it looks like " + like)};
}

bool anyPassword(const Settings& s) {
    const auto has = [](const Address& a) { return !a.password.empty(); };
    return std::any_of(s.stations.begin(), s.stations.end(), [&](const StationSettings& t) {
        return !t.password.empty() || std::any_of(t.sources.begin(), t.sources.end(), has) ||
               std::any_of(t.push.begin(), t.push.end(), has) ||
               (t.ephemerides && has(*t.ephemerides));
    });
}

/// Looks at files and folders.
class Files {
public:
    Files(const Settings& settings, SettingsRemarks& remarks) : s_(settings), remarks_(remarks) {}

    std::shared_ptr<Users> examine() {
        if (anyPassword(s_))
            hidden(remarks_.file(), kFileSection, "", "holds passwords");
        examineGateway();
        const CasterSettings& c = s_.caster;
        const bool certificate = readable(c.certificate, kCasterSection, "certificate");
        const bool key = readable(c.key, kCasterSection, "key");
        std::shared_ptr<Users> users;
        if (readable(c.users, kCasterSection, "users"))
            users = std::make_shared<Users>();
        hidden(c.key, kCasterSection, "key", "is secret");
        hidden(c.users, kCasterSection, "users", "holds hashes of passwords");
        if (certificate && key)
            examineTls();
        if (users)
            examineUsers(*users);
        for (std::size_t i = 0; i < s_.stations.size(); ++i)
            examineStation(s_.stations[i], kFirstStation + i);
        return users;
    }

private:
    /// Whether there is one, and it can be read.
    bool readable(const fs::path& path, std::size_t section, const char* key) {
        if (path.empty())
            return false;
        const auto why = unreadable(path);
        if (why)
            remarks_.error(section, key, path.string() + " cannot be read", *why);
        return !why;
    }
    void hidden(const fs::path& path, std::size_t section, const char* key, const char* why) {
        struct stat status {};
        if (stat(path.c_str(), &status) == 0 && (status.st_mode & S_IROTH) != 0)
            remarks_.warn(section, key,
                          text("%s %s, and everybody can read it (mode %04o)", path.c_str(), why,
                               static_cast<unsigned>(status.st_mode) & 07777U),
                          "chmod o-r " + path.string());
    }

    void examineGateway() {
        if (const auto why = unmakable(s_.state)) {
            const bool written = remarks_.present(kGatewaySection, "state");
            const std::string wrong =
                s_.state.string() + " cannot be written by this user (" + *why + ")";
            if (written)
                remarks_.error(kGatewaySection, "state", wrong,
                               "write a folder of your own, or start it as the user who can");
            else // as the unit finds it
                remarks_.warn(kGatewaySection, "state", wrong,
                              "the unit can; else add state = \"FOLDER\" to [gateway]");
        }
        if (!s_.externalEngine && findProgram(s_.engine).empty())
            remarks_.error(kGatewaySection, "engine",
                           s_.engine.string() + " is no program that is found",
                           "install kestrune, or write engine = \"PATH\"");
        const auto& command = s_.alarms.command;
        if (!command.empty() && findProgram(command).empty())
            remarks_.error(kAlarmsSection, "command",
                           command.string() + " is no program that is found",
                           "write the path of one that this user may run, without arguments");
    }

    void examineTls() {
        const CasterSettings& c = s_.caster;
        for (const CertificateRemark& r : examineCertificate(c.certificate, c.key, utcNow().time)) {
            const bool ofKey = r.of == CertificateRemark::Of::key;
            const char* const key = ofKey ? "key" : "certificate";
            const std::string wrong = (ofKey ? c.key : c.certificate).string() + " " + r.wrong;
            if (r.fatal)
                remarks_.error(kCasterSection, key, wrong, r.advice);
            else
                remarks_.warn(kCasterSection, key, wrong, r.advice);
        }
    }

    void examineUsers(Users& users) {
        std::vector<ctl::check::Remark> ofLines;
        users.read(s_.caster.users, ofLines);
        for (ctl::check::Remark& remark : ofLines)
            remarks_.add(std::move(remark));
        if (users.empty())
            remarks_.warn(kCasterSection, "users", s_.caster.users.string() + " has no users",
                          "add one: kestrune-gateway passwd FILE NAME");
        for (std::size_t i = 0; i < s_.stations.size(); ++i)
            for (const std::string& name : s_.stations[i].access.names)
                if (!users.contains(name))
                    remarks_.warn(kFirstStation + i, "access", name + " is no user",
                                  "add them: kestrune-gateway passwd " + s_.caster.users.string() +
                                      " " + name);
    }

    void examineStation(const StationSettings& station, std::size_t number) {
        for (const Address& a : station.sources)
            stream(a, number, "source");
        if (station.ephemerides)
            stream(*station.ephemerides, number, "ephemerides");
        for (const Address& a : station.push) {
            device(a, number, "push");
            if (a.scheme == Scheme::file)
                output(a.path, number);
        }
    }
    /// Of a pattern, the folder in front of the first part of a date.
    void output(const std::string& path, std::size_t number) {
        const fs::path folder = folderOf(path.substr(0, path.find('%')));
        std::error_code error;
        if (fs::is_directory(path, error))
            remarks_.error(number, "push", path + " is a folder",
                           "write the name of a file, such as " + path + "/%Y%m%d.rtcm3");
        else if (isRecording(path))
            remarks_.error(number, "push", path + " is a recording that a station reads",
                           "write the name of another file");
        else if (!fs::is_directory(folder, error))
            remarks_.error(number, "push", folder.string() + " is no folder that is there",
                           "make it: mkdir -p " + folder.string());
        else if (const auto why = unwritable(folder); why && folder == folderOf(path))
            remarks_.error(number, "push", "no file can be made in " + *why,
                           "give the folder to the user of the gateway");
    }
    bool isRecording(const std::string& path) const {
        const auto same = [&](const Address& a) {
            std::error_code missing;
            return a.scheme == Scheme::file && fs::equivalent(a.path, path, missing);
        };
        return std::any_of(s_.stations.begin(), s_.stations.end(), [&](const StationSettings& t) {
            return std::any_of(t.sources.begin(), t.sources.end(), same) ||
                   (t.ephemerides && same(*t.ephemerides));
        });
    }
    void stream(const Address& a, std::size_t number, const char* key) {
        device(a, number, key);
        if (a.scheme != Scheme::file || !readable(a.path, number, key))
            return;
        const auto fault = faultOfRecording(a.path);
        constexpr const char* advice = "write the path of a recorded RTCM 3 stream";
        if (fault && fault->fatal)
            remarks_.error(number, key, a.path + " " + fault->wrong, advice);
        else if (fault)
            remarks_.warn(number, key, a.path + " " + fault->wrong, advice);
    }
    void device(const Address& a, std::size_t number, const char* key) {
        if (a.scheme != Scheme::serial)
            return;
        struct stat status {};
        if (stat(a.path.c_str(), &status) != 0)
            remarks_.warn(number, key, a.path + " is not there",
                          "connect it; `ls /dev/serial/by-id` shows what is connected");
        else if (!S_ISCHR(status.st_mode))
            remarks_.error(number, key, a.path + " is no serial port",
                           "`ls /dev/serial/by-id` shows those that are connected");
        else if (access(a.path.c_str(), R_OK | W_OK) != 0)
            remarks_.warn(number, key, a.path + " cannot be used by this user",
                          "add the user to the group dialout");
    }

    const Settings& s_;
    SettingsRemarks& remarks_;
};

} // namespace

std::shared_ptr<Users> examineFiles(const Settings& settings, SettingsRemarks& remarks) {
    return Files(settings, remarks).examine();
}

} // namespace gateway
