#pragma once

#include <string>
#include <vector>

/// Findings: what a reader of the configuration has to say, in the order in which it found it.

enum class Severity { note, fatal };

struct Finding {
    Severity severity = Severity::note;
    std::string file; // path as configured
    int line = 0;     // 1-based; 0 where the place is a key
    std::string key;  // "section/key" of a JSON document; empty where the place is a line
    std::string text; // the printed line, without its line end
};

class Findings {
public:
    void note(std::string file, int line, std::string text) {
        list_.push_back({Severity::note, std::move(file), line, {}, std::move(text)});
    }
    void fatal(std::string file, int line, std::string text) {
        list_.push_back({Severity::fatal, std::move(file), line, {}, std::move(text)});
    }
    void fatalKey(std::string file, std::string key, std::string text) {
        list_.push_back({Severity::fatal, std::move(file), 0, std::move(key), std::move(text)});
    }
    bool anyFatal() const {
        for (const Finding& f : list_)
            if (f.severity == Severity::fatal)
                return true;
        return false;
    }
    const std::vector<Finding>& list() const { return list_; }

private:
    std::vector<Finding> list_;
};

/// A std::string formatted printf style.
[[gnu::format(printf, 1, 2)]] std::string text(const char* format, ...);
