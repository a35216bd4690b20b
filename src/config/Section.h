#pragma once

#include "base/ComText.h"
#include "config/Configuration.h"
#include "config/JsonDocument.h"

#include <functional>
#include <string>

/// One section of a document; every value it gives has passed excludeAnnoValue.
class Section {
public:
    Section(const JsonDocument& document, std::string name, Findings& findings)
        : document_(document), name_(std::move(name)), findings_(findings) {}

    std::string path(const char* key) const { return name_ + "/" + key; }

    /// Reports a value that cannot be used.
    void bad(FindingId id, const char* key, const std::string& value) const;

    bool has(const char* key) const { return document_.member(name_, key) != nullptr; }

    /// The text of a key into `out`; false with a finding where there is none.
    bool value(const char* key, std::string& out) const;
    /// A value read by `read`; false with a finding where that fails.
    bool scan(const char* key, FindingId malformed,
              const std::function<bool(TextScanner&)>& read) const;

    void integer(const char* key, int& out) const;
    void number(const char* key, double& out) const;
    void connector(const char* key, Connector& out) const;
    /// A key that may be absent; a finding that says what is expected where `read` refuses its
    /// text.
    void option(const char* key, const char* expected,
                const std::function<bool(const std::string&)>& read) const;

private:
    const JsonDocument& document_;
    std::string name_;
    Findings& findings_;
};
