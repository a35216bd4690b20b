#include "config/JsonDocument.h"

#include "common/ComText.h"

#include <cjson/cJSON.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <string_view>

namespace {

constexpr std::string_view kSpace = " \t\n\v\f\r";

/// 1-based line of a place in a text.
int lineOf(const std::string& content, std::size_t at) {
    const auto end = content.begin() + static_cast<std::ptrdiff_t>(std::min(at, content.size()));
    return 1 + static_cast<int>(std::count(content.begin(), end, '\n'));
}

void reportSyntax(const std::string& path, const std::string& content, Findings& findings) {
    const char* const at = cJSON_GetErrorPtr();
    const std::string after = at ? at : "";
    const int line = lineOf(content, content.size() - std::min(content.size(), after.size()));
    findings.note(path, line, text("Error before: [%s]", after.c_str()));
    findings.fatal(path, line, text("file = %s,key = ,value = ,not a JSON document", path.c_str()))
        .advice =
        after.empty()
            ? "the file ends too early: is it empty, or a bracket or quotation mark not closed?"
            : text("the fault is just before or at: %s",
                   after.substr(0, std::min<std::size_t>(after.find('\n'), 40)).c_str());
}

/// What stands behind the document's last bracket is not read.
void remarkOnRest(const std::string& path, const std::string& content, std::size_t end,
                  Findings& findings) {
    const std::size_t rest = content.find_first_not_of(kSpace, end);
    if (rest != std::string::npos)
        findings.remark(
            {Severity::warning,
             path,
             lineOf(content, rest),
             {},
             text("the document ends in front of: %s", content.substr(rest, 40).c_str()),
             "what is behind it is not read: is a bracket closed too early?"});
}

/// Whether what a '#' or '!' cut off looks like the rest of a path and not like a comment.
bool cutsAPath(std::string_view written) {
    const std::size_t at = written.find_first_of("#!");
    if (at == std::string_view::npos)
        return false;
    const std::string_view behind = written.substr(at + 1);
    return (at > 0 && written[at - 1] == '/') ||
           (contains(behind, "/") && behind.find_first_of(kSpace) == std::string_view::npos);
}

/// The text with no white space in front of its comment or its end.
std::string tightened(std::string_view written) {
    const std::size_t comment = std::min(written.find_first_of("#!"), written.size());
    const std::string_view value = written.substr(0, comment);
    const std::size_t last = value.find_last_not_of(kSpace);
    return std::string(value.substr(0, last + 1)).append(written.substr(comment)); // npos + 1 is 0
}

} // namespace

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
    if (!file || std::ferror(file.get()) || content.size() > kLargestJson)
        findings.fatal(path, 0,
                       text("****ERROR(Deploy): file = %s,can't access json file", path.c_str()));
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
    : file(std::move(path)), root(nullptr, cJSON_Delete) {
    const std::size_t before = findings.list().size();
    const std::string content = json_loader(file, findings);
    if (findings.list().size() > before)
        return;
    const char* end = nullptr;
    root.reset(cJSON_ParseWithOpts(content.c_str(), &end, /*require_null_terminated=*/0));
    if (root)
        remarkOnRest(file, content, static_cast<std::size_t>(end - content.c_str()), findings);
    else
        reportSyntax(file, content, findings);
}

const cJSON* JsonDocument::member(const std::string& key) const {
    asked.push_back(key);
    return cJSON_GetObjectItem(root.get(), key.c_str());
}

const cJSON* JsonDocument::member(const std::string& section, const std::string& key) const {
    asked.push_back(section + "/" + key);
    return cJSON_GetChildValue(root.get(), section.c_str(), key.c_str());
}

std::string valueOf(const cJSON& item, const JsonDocument& document, const std::string& key,
                    Findings& findings) {
    const std::string written = item.valuestring;
    std::string value = excludeAnnoValue(written);
    const std::string tight = tightened(written);
    const auto remark = [&](std::string advice) {
        findings.remark({Severity::warning, document.file, 0, key,
                         text("reads \"%s\", written %s", value.c_str(), shown(&item).c_str()),
                         std::move(advice)});
    };
    if (excludeAnnoValue(tight) != value)
        remark(text("each blank before a comment or at the end turns into a 0: write \"%s\"",
                    tight.c_str()));
    else if (cutsAPath(written))
        remark("a # or ! ends a value: a path cannot hold one");
    return value;
}
