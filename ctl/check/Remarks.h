#pragma once

#include "base/Findings.h"
#include "config/Configuration.h"
#include "config/ReadingWatcher.h"

#include <map>
#include <string>
#include <string_view>
#include <tuple>
#include <vector>

/// Remarks: what `check` says of a configuration beside the lines of the service. The service uses
/// all of it as it stands; it is likely not read as it is meant.

namespace ctl::check {

/// What `check` says, of a finding of the readers or of its own.
struct Remark {
    Severity severity = Severity::note;
    std::string file;   // path as configured
    int line = 0;       // 1-based; 0 where the place is a key or a whole file
    std::string key;    // "section/key" of a JSON document; else empty
    std::string text;   // what is wrong
    std::string advice; // what to write instead
    int column = 0;     // 1-based; 0 where the reader knows the line alone
};

/// What was seen of a fault: its line, and what to write instead.
struct Explanation {
    int line = 0;
    std::string advice;
};

class Remarks : public ReadingWatcher {
public:
    void add(Remark remark) {
        if (!full())
            list_.push_back(std::move(remark));
    }
    /// Further remarks are not kept.
    bool full() const { return list_.size() >= 1000; }
    const std::vector<Remark>& list() const { return list_; }
    /// Paths that a comment character ended: what is behind it may be meant as a part of them.
    const std::vector<std::string>& cutPaths() const { return cutPaths_; }
    /// What was seen of the fault that a finding reports; null where nothing was.
    const Explanation* explanationOf(const Finding& finding) const;

    void parsed(const JsonDocument& document, std::string_view text, std::size_t end) override;
    void value(const KeyPlace& at, const cJSON& written, const std::string& taken) override;
    void valueEnd(const KeyPlace& at, const std::string& value, std::string_view end,
                  FindingId malformed) override;
    void asked(const JsonDocument& document, const Findings& findings) override;
    void date(const KeyPlace& at, const ReadDate& date) override;
    void requestName(const KeyPlace& at, const cJSON& written, const std::string& taken) override;
    void systemAgain(const KeyPlace& at, const std::string& item) override;
    void band(const KeyPlace& at, const ReadBand& band) override;
    void bandLeftOut(const KeyPlace& at, const std::string& item, const std::string& band) override;
    void passedOver(std::string_view line, RecordKind expected, const RecordPlace& at) override;
    void satellite(const SatelliteRecord& satellite, std::size_t numbers, std::string_view rest,
                   const RecordPlace& at) override;
    void station(const StationRecord& station, bool first, std::string_view rest,
                 const RecordPlace& at) override;
    void position(const StationRecord& station, const ReadPosition& read,
                  const RecordPlace& at) override;
    void offsets(const StationRecord& station, const RecordPlace& at) override;
    void site(const StationRecord& station, const std::string& key, const RecordPlace& at,
              LineReader& file) override;

private:
    void warn(const KeyPlace& at, std::string what, std::string advice);
    void warn(const RecordPlace& at, std::string what, std::string advice);
    void channel(const SatelliteRecord& satellite, std::size_t numbers, const RecordPlace& at);
    void place(const StationRecord& station, const RecordPlace& at);

    void explain(FindingId id, const RecordPlace& at, Explanation explanation);

    std::vector<Remark> list_;
    std::vector<std::string> cutPaths_;
    std::map<std::tuple<FindingId, std::string, int>, Explanation> explanations_; // by place
    bool first_ = false; // the station read last is the first, which is served
};

/// A deployment and what it says: the lines of the service, and the remarks.
struct Reading {
    Deployment deployment;
    Remarks remarks;
    Findings findings{&remarks};
};

/// Whether the stream can carry a satellite of that name.
bool isSatellite(const std::string& name);
/// Remarks on the members of a document that no reader asked for, with the key that is likely
/// meant, and on those that stand twice. Names are compared as the library does it, whatever their
/// case.
void remarkOnKeys(const JsonDocument& document, const Findings& findings, Remarks& remarks);

} // namespace ctl::check
