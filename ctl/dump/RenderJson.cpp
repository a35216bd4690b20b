#include "ctl/dump/Render.h"

#include "base/Findings.h"

#include <cjson/cJSON.h>

#include <ostream>

namespace ctl::dump {

namespace {

struct Deleter {
    void operator()(cJSON* object) const { cJSON_Delete(object); }
};
using Object = std::unique_ptr<cJSON, Deleter>;

void add(cJSON* object, const char* key, const std::string& value) {
    cJSON_AddStringToObject(object, key, value.c_str());
}
/// Numbers are written as text, so that 64 bits and chosen decimals stay.
void addNumber(cJSON* object, const char* key, const std::string& digits) {
    cJSON_AddRawToObject(object, key, digits.c_str());
}
void addNumber(cJSON* object, const char* key, std::uint64_t value) {
    addNumber(object, key, std::to_string(value));
}
void addWords(cJSON* object, const char* key, const std::vector<std::string>& words) {
    cJSON* const list = cJSON_AddArrayToObject(object, key);
    for (const std::string& word : words)
        cJSON_AddItemToArray(list, cJSON_CreateString(word.c_str()));
}
void addValue(cJSON* object, const char* key, const Value& value, int decimals = -1) {
    if (std::holds_alternative<std::monostate>(value))
        cJSON_AddNullToObject(object, key);
    else if (const auto* const string = std::get_if<std::string>(&value))
        add(object, key, *string);
    else if (const auto* const number = std::get_if<double>(&value); number && decimals >= 0)
        addNumber(object, key, text("%.*f", decimals, *number));
    else
        addNumber(object, key, textOf(value));
}

Object begin(const char* kind, const Found& found) {
    Object object(cJSON_CreateObject());
    add(object.get(), "kind", kind);
    addNumber(object.get(), "offset", found.offset);
    addNumber(object.get(), "length", found.bytes.size());
    if (found.kind != Found::kSkipped)
        add(object.get(), "check", found.good ? "good" : "bad");
    return object;
}

class JsonReport : public Report {
public:
    JsonReport(std::ostream& out, bool verbose) : out_(out), verbose_(verbose) {}

    void message(const Found& found, const Description& d, Depth depth) override {
        const Object object = begin("message", found);
        cJSON* const o = object.get();
        if (d.type >= 0)
            addNumber(o, "type", std::to_string(d.type));
        add(o, "name", d.name);
        if (depth == Depth::kReply)
            cJSON_AddTrueToObject(o, "in_reply");
        if (found.good)
            cJSON_AddBoolToObject(o, "decoded", d.decoded);
        if (d.tooShort)
            cJSON_AddTrueToObject(o, "too_short");
        if (d.bytesBeyond > 0)
            addNumber(o, "bytes_beyond", d.bytesBeyond);
        if (d.station)
            addNumber(o, "station", std::to_string(*d.station));
        if (!d.time.empty())
            add(o, "time", d.time);
        if (d.satellites)
            addWords(o, "satellites", *d.satellites);
        if (!d.signals.empty())
            addWords(o, "signals", d.signals);
        if (d.more)
            cJSON_AddBoolToObject(o, "more_follow", *d.more);
        if (!d.note.empty())
            add(o, "note", d.note);
        if (verbose_)
            details(o, d);
        line(o);
    }

    void reply(const Found& found, std::uint32_t word, int kind) override {
        const Object object = begin("reply", found);
        add(object.get(), "request_word", text("%08X", word));
        addNumber(object.get(), "reply_kind", std::to_string(kind));
        line(object.get());
    }

    void skipped(const Found& found, Depth depth) override {
        const Object object = begin("skipped", found);
        if (depth == Depth::kReply)
            cJSON_AddTrueToObject(object.get(), "in_reply");
        cJSON_AddBoolToObject(object.get(), "cut_off", found.cut);
        line(object.get());
    }

    void summary(const Counts& counts) override {
        const Object object(cJSON_CreateObject());
        cJSON* const o = object.get();
        add(o, "kind", "summary");
        std::uint64_t all = 0;
        cJSON* const types = cJSON_AddObjectToObject(o, "messages_by_type");
        for (const auto& [type, count] : counts.messages) {
            all += count;
            addNumber(types, type < 0 ? "none" : std::to_string(type).c_str(), count);
        }
        addNumber(o, "messages", all);
        addNumber(o, "replies", counts.replies);
        addNumber(o, "bad_frames", counts.badFrames);
        addNumber(o, "skipped_bytes", counts.skippedBytes);
        addNumber(o, "leading_bytes", counts.leadingBytes);
        addNumber(o, "cut_bytes", counts.cutBytes);
        addNumber(o, "faults", counts.faults);
        addWords(o, "notes", remarks(counts));
        line(o);
    }

private:
    static void details(cJSON* object, const Description& d) {
        cJSON* const fields = cJSON_AddArrayToObject(object, "fields");
        for (const Field& f : d.fields) {
            cJSON* const field = cJSON_CreateObject();
            cJSON_AddItemToArray(fields, field);
            add(field, "name", f.name.name);
            if (f.name.df)
                addNumber(field, "df", std::to_string(f.name.df));
            addValue(field, "value", f.value);
            if (*f.name.unit)
                add(field, "unit", f.name.unit);
        }
        if (d.columns.empty())
            return;
        cJSON* const rows = cJSON_AddArrayToObject(object, "observations");
        for (const auto& row : d.rows) {
            cJSON* const cell = cJSON_CreateObject();
            cJSON_AddItemToArray(rows, cell);
            for (std::size_t i = 0; i < row.size(); ++i)
                addValue(cell, d.columns[i].key, row[i], d.columns[i].decimals);
        }
    }

    void line(const cJSON* object) {
        const std::unique_ptr<char, void (*)(void*)> printed(cJSON_PrintUnformatted(object),
                                                             cJSON_free);
        out_ << printed.get() << '\n';
    }

    std::ostream& out_;
    bool verbose_;
};

} // namespace

std::unique_ptr<Report> jsonReport(std::ostream& out, bool verbose) {
    return std::make_unique<JsonReport>(out, verbose);
}

} // namespace ctl::dump
