#include "config/JsonDocument.h"

#include "base/ComText.h"
#include "config/ReadingWatcher.h"

#include <cjson/cJSON.h>

#include <array>
#include <cstdio>

std::string json_loader(const std::string& path, Findings& findings) {
    const std::unique_ptr<std::FILE, decltype(&std::fclose)> file(std::fopen(path.c_str(), "rb"),
                                                                  std::fclose);
    std::string content;
    std::array<char, 4096> block{};
    while (file && content.size() <= kLargestJson)
        if (const std::size_t n = std::fread(block.data(), 1, block.size(), file.get()))
            content.append(block.data(), n);
        else
            break;
    if (content.size() > kLargestJson)
        findings.add(FindingId::jsonTooLarge, path, 0);
    else if (!file || std::ferror(file.get()))
        findings.add(FindingId::jsonUnreadable, path, 0);
    return content;
}

const cJSON* cJSON_GetChildValue(const cJSON* root, const char* section, const char* key) {
    return cJSON_GetObjectItem(cJSON_GetObjectItem(root, section), key);
}

std::string shown(const cJSON* item) {
    const std::unique_ptr<char, decltype(&cJSON_free)> printed(
        item ? cJSON_PrintUnformatted(item) : nullptr, cJSON_free);
    return printed ? printed.get() : "";
}

JsonDocument::JsonDocument(std::string path, Findings& findings)
    : file(std::move(path)), root(nullptr, cJSON_Delete), watched_(findings.watcher() != nullptr) {
    const std::size_t before = findings.list().size();
    const std::string content = json_loader(file, findings);
    if (findings.list().size() > before)
        return;
    const char* end = nullptr;
    root.reset(cJSON_ParseWithOpts(content.c_str(), &end, /*require_null_terminated=*/0));
    if (!root) {
        end = cJSON_GetErrorPtr(); // into the content
        findings.add(FindingId::jsonErrorBefore, file, 0, {end ? end : ""});
        findings.add(FindingId::jsonMalformed, file, 0, {""});
    }
    if (ReadingWatcher* const watcher = findings.watcher())
        watcher->parsed(*this, content, end ? static_cast<std::size_t>(end - content.c_str()) : 0);
}

const cJSON* JsonDocument::member(const std::string& key) const {
    if (watched_)
        asked.push_back(key);
    return cJSON_GetObjectItem(root.get(), key.c_str());
}

const cJSON* JsonDocument::member(const std::string& section, const std::string& key) const {
    if (watched_)
        asked.push_back(section + "/" + key);
    return cJSON_GetChildValue(root.get(), section.c_str(), key.c_str());
}

std::string valueOf(const cJSON& item, const JsonDocument& document, const std::string& key,
                    Findings& findings) {
    std::string value = excludeAnnoValue(item.valuestring);
    if (ReadingWatcher* const watcher = findings.watcher())
        watcher->value({document.file, key}, item, value);
    return value;
}
