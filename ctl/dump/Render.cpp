#include "ctl/dump/Render.h"

#include "base/Findings.h"
#include "rtcm/layouts/ReplyFrame.h"

#include <algorithm>
#include <ostream>

namespace ctl::dump {

namespace {

using Unsigned = unsigned long long;

std::string joined(const std::vector<std::string>& words, const char* between = " ") {
    std::string out;
    for (const std::string& word : words)
        out += (out.empty() ? "" : between) + word;
    return out;
}

std::string typeText(int type) {
    return type < 0 ? "-" : std::to_string(type);
}

/// What else there is to say about a message.
std::string caveat(const Found& found, const Description& d) {
    if (!found.good)
        return "wrong check word, contents not read";
    if (d.tooShort)
        return "ends before its fields do, contents not read";
    if (d.bytesBeyond > 0)
        return text("%zu bytes beyond its fields", d.bytesBeyond);
    return "";
}

/// Beginning of bytes that are no frame: as text where they are text.
std::string glimpse(std::span<const std::uint8_t> bytes) {
    const bool printable =
        bytes.size() >= 4 && std::all_of(bytes.begin(), bytes.end(), [](std::uint8_t b) {
            return (b >= 0x20 && b < 0x7F) || b == '\r' || b == '\n' || b == '\t';
        });
    const std::size_t most = printable ? 64 : 16;
    std::string out;
    for (const std::uint8_t b : bytes.first(std::min(bytes.size(), most)))
        out += !printable ? text("%s%02X", out.empty() ? "" : " ", b)
               : b < 0x20 ? " "
                          : std::string(1, static_cast<char>(b));
    const char* const more = bytes.size() > most ? "..." : "";
    return printable ? '"' + out + more + '"' : out + (*more ? " ..." : "");
}

class TextReport : public Report {
public:
    TextReport(std::ostream& out, bool verbose) : out_(out), verbose_(verbose) {}

    void message(const Found& found, const Description& d, Depth depth) override {
        std::vector<std::string> rest;
        if (d.satellites && d.type >= 0 && isObservation(d.type))
            rest.push_back(text("%zu sat:", d.satellites->size()));
        if (d.satellites && !d.satellites->empty())
            rest.push_back(joined(*d.satellites));
        if (!d.signals.empty())
            rest.push_back("| " + joined(d.signals));
        if (d.more)
            rest.push_back(*d.more ? "| more follow" : "| last of epoch");
        if (!d.note.empty())
            rest.push_back((d.satellites ? "| " : "") + d.note);
        if (const std::string c = caveat(found, d); !c.empty())
            rest.push_back("| " + c);
        const std::string station = d.station ? text("st %d", *d.station) : "";
        line(found, depth, typeText(d.type), d.name,
             text("%-7s  %-27s  ", station.c_str(), d.time.c_str()) + joined(rest));
        if (verbose_)
            details(d);
    }

    void reply(const Found& found, std::uint32_t word, int kind) override {
        line(found, Depth::kStream, "0xDA", "reply frame",
             text("request word %08X", word) +
                 (kind == kReplyKind ? "" : text(" | kind %d, not %d", kind, kReplyKind)) +
                 (found.good ? "" : " | wrong check word, messages not read"));
    }

    void skipped(const Found& found, Depth depth) override {
        header();
        out_ << text("%10llu %5zu  --         %sno frame%s: ", static_cast<Unsigned>(found.offset),
                     found.bytes.size(), depth == Depth::kReply ? "  " : "",
                     found.cut ? ", cut off by the end" : "")
             << glimpse(found.bytes) << '\n';
    }

    void summary(const Counts& counts) override {
        Unsigned all = 0;
        out_ << (headed_ ? "\n" : "") << "   count  type  message\n";
        for (const auto& [type, count] : counts.messages) {
            all += count;
            out_ << text("%8llu  %4s  %s\n", static_cast<Unsigned>(count), typeText(type).c_str(),
                         messageName(type).c_str());
        }
        out_ << text("%8llu  messages in all, %llu reply frames, %llu frames with a wrong check "
                     "word, %llu bytes skipped\n",
                     all, static_cast<Unsigned>(counts.replies),
                     static_cast<Unsigned>(counts.badFrames),
                     static_cast<Unsigned>(counts.skippedBytes));
        for (const std::string& remark : remarks(counts))
            out_ << "note: " << remark << '\n';
    }

private:
    void header() {
        if (!headed_)
            out_ << "    offset bytes check type  message                   station  time          "
                    "   "
                    "            contents\n";
        headed_ = true;
    }

    void line(const Found& found, Depth depth, const std::string& type, const std::string& name,
              std::string rest) {
        header();
        rest.erase(rest.find_last_not_of(' ') + 1);
        out_ << text("%10llu %5zu  %-4s %4s  %s%-*s ", static_cast<Unsigned>(found.offset),
                     found.bytes.size(), found.good ? "good" : "BAD", type.c_str(),
                     depth == Depth::kReply ? "  " : "", depth == Depth::kReply ? 23 : 25,
                     name.c_str())
             << rest << '\n';
    }

    void details(const Description& d) {
        for (const Field& f : d.fields)
            out_ << text("%24s%-6s %-30s %s%s%s", "",
                         f.name.df ? text("DF%03d", f.name.df).c_str() : "", f.name.name,
                         textOf(f.value).c_str(), *f.name.unit ? " " : "", f.name.unit)
                 << '\n';
        if (d.rows.empty())
            return;
        std::vector<std::vector<std::string>> cells(1);
        for (const Column& c : d.columns)
            cells[0].emplace_back(c.title);
        for (const auto& row : d.rows) {
            cells.emplace_back();
            for (std::size_t i = 0; i < row.size(); ++i)
                cells.back().push_back(cellText(row[i], d.columns[i]));
        }
        std::vector<std::size_t> widths(d.columns.size());
        for (const auto& row : cells)
            for (std::size_t i = 0; i < row.size(); ++i)
                widths[i] = std::max(widths[i], row[i].size());
        for (const auto& row : cells) {
            out_ << std::string(22, ' ');
            for (std::size_t i = 0; i < row.size(); ++i)
                out_ << "  " << std::string(widths[i] - row[i].size(), ' ') << row[i];
            out_ << '\n';
        }
    }

    static std::string cellText(const Value& value, const Column& column) {
        const auto* const number = std::get_if<double>(&value);
        return number ? text("%.*f", column.decimals, *number) : textOf(value);
    }

    std::ostream& out_;
    bool verbose_;
    bool headed_ = false;
};

} // namespace

bool anyGood(const Counts& counts) {
    return !counts.messages.empty() || counts.replies > 0;
}

std::vector<std::string> remarks(const Counts& counts) {
    const auto any = [&](auto is) {
        return std::any_of(counts.messages.begin(), counts.messages.end(),
                           [&](const auto& entry) { return is(entry.first); });
    };
    if (counts.messages.empty())
        return {"no RTCM 3 message at all"};
    std::vector<std::string> out;
    if (!any(isObservation))
        out.emplace_back("no observations (1001-1004, 1009-1012, MSM4 to MSM7)");
    else if (counts.epochs == 0)
        out.emplace_back("no epoch ends: every observation message says that more follow");
    if (!any([](int type) { return type == 1005 || type == 1006; }))
        out.emplace_back("no station position (1005, 1006)");
    if (!any(isEphemeris))
        out.emplace_back("no ephemerides");
    if (counts.tooShort > 0)
        out.push_back(text("%llu messages end before their fields do",
                           static_cast<Unsigned>(counts.tooShort)));
    if (counts.leadingBytes > 0)
        out.push_back(text("the first %llu bytes are of no good frame: no fault, a stream may be "
                           "joined anywhere",
                           static_cast<Unsigned>(counts.leadingBytes)));
    if (counts.cutBytes > 0)
        out.push_back(text("the end cuts a frame off after %llu bytes: no fault",
                           static_cast<Unsigned>(counts.cutBytes)));
    return out;
}

std::unique_ptr<Report> textReport(std::ostream& out, bool verbose) {
    return std::make_unique<TextReport>(out, verbose);
}

} // namespace ctl::dump
