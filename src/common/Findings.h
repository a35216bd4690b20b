#pragma once

#include <string>
#include <vector>

/// Findings: what a reader of the configuration has to say, in the order in which it found it.

/// A note explains the fault that is reported behind it; after a warning the service goes on.
enum class Severity { note, warning, fatal };

struct Finding {
    Severity severity = Severity::note;
    std::string file;        // path as configured
    int line = 0;            // 1-based; 0 where the place is a key
    std::string key;         // "section/key" of a JSON document; empty where the place is a line
    std::string text;        // the printed line, without its line end
    std::string advice = {}; // what to write instead; not printed by the service
};

class Findings {
public:
    Finding& note(std::string file, int line, std::string text) {
        return add({Severity::note, std::move(file), line, {}, std::move(text)});
    }
    Finding& warning(std::string file, int line, std::string text) {
        return add({Severity::warning, std::move(file), line, {}, std::move(text)});
    }
    Finding& fatal(std::string file, int line, std::string text) {
        return add({Severity::fatal, std::move(file), line, {}, std::move(text)});
    }
    Finding& fatalKey(std::string file, std::string key, std::string text) {
        return add({Severity::fatal, std::move(file), 0, std::move(key), std::move(text)});
    }
    bool anyFatal() const {
        for (const Finding& f : list_)
            if (f.severity == Severity::fatal)
                return true;
        return false;
    }
    /// What the service prints.
    const std::vector<Finding>& list() const { return list_; }

    /// What a reader notices in passing and the service keeps to itself: a value that is likely
    /// not read as it is meant.
    void remark(Finding finding) {
        if (!full())
            remarks_.push_back(std::move(finding));
    }
    /// Further remarks are not kept.
    bool full() const { return remarks_.size() >= 1000; }
    const std::vector<Finding>& remarks() const { return remarks_; }

    /// Paths that a comment character ended: what is behind it may be meant as a part of them.
    void cutPath(std::string path) { cutPaths_.push_back(std::move(path)); }
    const std::vector<std::string>& cutPaths() const { return cutPaths_; }

private:
    Finding& add(Finding finding) { return list_.emplace_back(std::move(finding)); }

    std::vector<Finding> list_;
    std::vector<Finding> remarks_;
    std::vector<std::string> cutPaths_;
};

/// A std::string formatted printf style.
[[gnu::format(printf, 1, 2)]] std::string text(const char* format, ...);
