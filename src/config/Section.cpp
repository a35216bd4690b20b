#include "config/Section.h"

#include "config/ReadingWatcher.h"

#include <cjson/cJSON.h>

#include <cmath>

void Section::bad(FindingId id, const char* key, const std::string& value) const {
    findings_.addKey(id, document_.file, path(key), {value});
}

bool Section::value(const char* key, std::string& out) const {
    const cJSON* const item = document_.member(name_, key);
    if (!item) {
        bad(FindingId::keyMissing, key, "");
        return false;
    }
    if (!cJSON_IsString(item)) {
        bad(FindingId::valueIsNoText, key, shown(item));
        return false;
    }
    out = valueOf(*item, document_, path(key), findings_);
    return true;
}

bool Section::scan(const char* key, FindingId malformed,
                   const std::function<bool(TextScanner&)>& read) const {
    std::string v;
    if (!value(key, v))
        return false;
    TextScanner scanner(v);
    if (!read(scanner)) {
        bad(malformed, key, v);
        return false;
    }
    if (ReadingWatcher* const watcher = findings_.watcher(); watcher && !scanner.atEnd())
        watcher->valueEnd({document_.file, path(key)}, v, scanner.rest(), malformed);
    return true;
}

void Section::integer(const char* key, int& out) const {
    scan(key, FindingId::integerMalformed, [&](TextScanner& s) { return s.integer(out); });
}

void Section::number(const char* key, double& out) const {
    scan(key, FindingId::numberMalformed,
         [&](TextScanner& s) { return s.number(out) && std::isfinite(out); });
}

void Section::option(const char* key, const char* expected,
                     const std::function<bool(const std::string&)>& read) const {
    std::string v;
    if (has(key) && value(key, v) && !read(v))
        findings_.addKey(FindingId::optionMalformed, document_.file, path(key), {v, expected});
}

void Section::connector(const char* key, Connector& out) const {
    const bool read = scan(key, FindingId::connectorMalformed,
                           [&](TextScanner& s) { return s.word(out.host) && s.integer(out.port); });
    if (read && (out.port < 1 || out.port > 65535))
        bad(FindingId::portOutOfRange, key, out.host + " " + std::to_string(out.port));
}
