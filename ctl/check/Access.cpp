#include "ctl/check/Access.h"

#include "config/JsonDocument.h"

#include <cjson/cJSON.h>

#include <algorithm>
#include <array>
#include <filesystem>
#include <sys/stat.h>
#include <vector>

namespace ctl::check {

namespace {

namespace fs = std::filesystem;

/// What the unit cannot see whatever the modes say (ProtectHome, DynamicUser).
constexpr std::array kHidden{"/home", "/root", "/run/user", "/tmp", "/var/tmp"};

bool beneath(const fs::path& path, const fs::path& folder) {
    return std::mismatch(folder.begin(), folder.end(), path.begin(), path.end()).first ==
           folder.end();
}

std::optional<Closed> closedOnTheWay(const fs::path& path) {
    fs::path reached;
    for (const fs::path& part : path) {
        reached /= part;
        struct stat status {};
        if (stat(reached.c_str(), &status) != 0)
            return std::nullopt; // told as missing
        const bool folder = S_ISDIR(status.st_mode);
        if (!(status.st_mode & (folder ? S_IXOTH : S_IROTH)))
            return Closed{reached.string(), folder, status.st_mode & 07777U};
    }
    return std::nullopt;
}

std::vector<std::string> filesOfSession(const Deployment& d) {
    const TablePaths& t = d.tables;
    std::vector<std::string> files{d.file, t.object, t.stacoo};
    Findings ignored;
    const JsonDocument document(d.file, ignored);
    if (const cJSON* const tables = document.root ? document.member("files") : nullptr;
        tables && cJSON_IsString(tables))
        files.push_back(valueOf(*tables, document, "files", ignored));
    if (d.systems.find('R') != std::string::npos)
        files.push_back(t.leapsc);
    if (d.post)
        files.insert(files.end(), {t.satnav, t.antnam, t.antpcv, t.vrnfln});
    return files;
}

} // namespace

std::optional<Closed> closedToOthers(const std::string& path) {
    std::error_code error;
    const fs::path written = fs::absolute(path, error);
    if (auto closed = closedOnTheWay(written))
        return closed;
    const fs::path real = fs::canonical(written, error); // where links lead
    return error ? std::nullopt : closedOnTheWay(real);
}

void examineAccess(Severity severity, Reading& reading) {
    std::vector<std::string> told;
    for (const std::string& file : filesOfSession(reading.deployment)) {
        const std::optional<Closed> closed = closedToOthers(file);
        if (!closed || std::find(told.begin(), told.end(), closed->path) != told.end())
            continue;
        told.push_back(closed->path);
        reading.remarks.add(
            {severity,
             closed->folder ? closed->path : file,
             0,
             {},
             text("the user of the unit cannot %s it (mode %04o)",
                  closed->folder ? "enter" : "read", closed->mode),
             text("chmod o+%c %s", closed->folder ? 'x' : 'r', closed->path.c_str())});
    }
}

void examineHidden(Reading& reading) {
    for (const std::string& file : filesOfSession(reading.deployment)) {
        std::error_code error;
        const fs::path real = fs::canonical(file, error);
        for (const char* const folder : kHidden)
            if (!error && beneath(real, folder))
                reading.remarks.add({Severity::fatal,
                                     file,
                                     0,
                                     {},
                                     text("the unit does not see what is in %s", folder),
                                     "put it into /etc/kestrune"});
    }
}

} // namespace ctl::check
