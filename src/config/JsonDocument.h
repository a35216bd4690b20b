#pragma once

#include "base/Findings.h"

#include <memory>
#include <string>
#include <vector>

struct cJSON;

/// JsonDocument: the deployment file or the tables file. Where somebody watches it records the keys
/// that its readers ask for; any other key is unknown.

/// A whole file of at most kLargestJson bytes; empty with a fatal finding when it cannot be read.
std::string json_loader(const std::string& path, Findings& findings);
inline constexpr std::size_t kLargestJson = std::size_t{4} << 20;

/// Member `key` of the object member `section`, or null.
const cJSON* cJSON_GetChildValue(const cJSON* root, const char* section, const char* key);

/// A value as it stands in its document; empty for none.
std::string shown(const cJSON* item);

struct JsonDocument {
    /// Loads and parses the file; `root` is null, with findings, where that fails.
    JsonDocument(std::string path, Findings& findings);

    /// A member of the root, or of its object member `section`; null where there is none.
    const cJSON* member(const std::string& key) const;
    const cJSON* member(const std::string& section, const std::string& key) const;

    std::string file;
    std::unique_ptr<cJSON, void (*)(cJSON*)> root;
    mutable std::vector<std::string> asked; // paths of the keys that readers asked for

private:
    bool watched_;
};

/// The text of a string item, as every value is read (excludeAnnoValue).
std::string valueOf(const cJSON& item, const JsonDocument& document, const std::string& key,
                    Findings& findings);
