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

class ReadingWatcher;

class Findings {
public:
    explicit Findings(ReadingWatcher* watcher = nullptr) : watcher_(watcher) {}

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

    /// Who sees what is read; null in the service.
    ReadingWatcher* watcher() const { return watcher_; }

private:
    Finding& add(Finding finding) { return list_.emplace_back(std::move(finding)); }

    std::vector<Finding> list_;
    ReadingWatcher* watcher_ = nullptr;
};

/// A std::string formatted printf style.
[[gnu::format(printf, 1, 2)]] std::string text(const char* format, ...);
