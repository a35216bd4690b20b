#include "config/Section.h"

#include "common/ReadingWatcher.h"

#include <cjson/cJSON.h>

#include <cmath>

void Section::bad(const char* key, const std::string& value, const std::string& expected) const {
    findings_.fatalKey(document_.file, path(key),
                       text("file = %s,key = %s,value = %s,%s", document_.file.c_str(),
                            path(key).c_str(), value.c_str(), expected.c_str()));
}

bool Section::value(const char* key, std::string& out) const {
    const cJSON* const item = document_.member(name_, key);
    if (!item) {
        bad(key, "", "key is missing");
        return false;
    }
    if (!cJSON_IsString(item)) {
        bad(key, shown(item), "value is not a string");
        return false;
    }
    out = valueOf(*item, document_, path(key), findings_);
    return true;
}

bool Section::scan(const char* key, const char* format,
                   const std::function<bool(TextScanner&)>& read) const {
    std::string v;
    if (!value(key, v))
        return false;
    TextScanner scanner(v);
    if (!read(scanner)) {
        bad(key, v, text("expected \"%s\"", format));
        return false;
    }
    if (ReadingWatcher* const watcher = findings_.watcher(); watcher && !scanner.atEnd())
        watcher->valueEnd({document_.file, path(key)}, v, scanner.rest(), format);
    return true;
}

void Section::integer(const char* key, int& out) const {
    scan(key, "%d", [&](TextScanner& s) { return s.integer(out); });
}

void Section::number(const char* key, double& out) const {
    scan(key, "%lf", [&](TextScanner& s) { return s.number(out) && std::isfinite(out); });
}

void Section::connector(const char* key, Connector& out) const {
    const bool read =
        scan(key, "%s %d", [&](TextScanner& s) { return s.word(out.host) && s.integer(out.port); });
    if (read && (out.port < 1 || out.port > 65535))
        bad(key, out.host + " " + std::to_string(out.port), "port is not in 1..65535");
}
