#include "config/JsonDocument.h"

#include "common/ComText.h"
#include "common/ReadingWatcher.h"

#include <cjson/cJSON.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <string_view>

namespace {

/// The line around a place, without its indent and at most some 80 characters of it.
std::string_view lineAround(std::string_view content, std::size_t at) {
    constexpr std::size_t reach = 40; // to either side
    const std::size_t before = at == 0 ? std::string_view::npos : content.rfind('\n', at - 1);
    const std::size_t begin = std::max(before + 1, at - std::min(at, reach)); // npos + 1 is 0
    const std::size_t end = std::min({content.find('\n', at), content.size(), at + reach});
    const std::string_view line = content.substr(begin, end - begin);
    const std::size_t first = std::min(line.find_first_not_of(kWhiteSpace), line.size());
    return line.substr(first, line.find_last_not_of(kWhiteSpace) + 1 - first);
}

/// That line, and where it holds brackets alone also the one above.
std::string surroundings(std::string_view content, std::size_t at) {
    std::string line(lineAround(content, at));
    if (line.find_first_not_of(" \t{}[],") != std::string::npos)
        return line;
    const std::size_t start = at == 0 ? std::string_view::npos : content.rfind('\n', at - 1);
    const std::size_t above = content.find_last_not_of(" \t\v\f\r\n{}[],", std::min(at, start));
    if (start == std::string_view::npos || above == std::string_view::npos)
        return line;
    return std::string(lineAround(content, above)) + " " + line;
}

/// Where a comma stands in front of the closing bracket at a place or just before it, which is
/// where the library stops; npos where there is none.
std::size_t commaBeforeBracket(std::string_view content, std::size_t at) {
    const auto closes = [&](std::size_t i) {
        return i < content.size() && (content[i] == '}' || content[i] == ']');
    };
    const std::size_t bracket = closes(at) || at == 0 ? at : at - 1;
    if (!closes(bracket) || bracket == 0)
        return std::string_view::npos;
    const std::size_t last = content.find_last_not_of(kWhiteSpace, bracket - 1);
    return last != std::string_view::npos && content[last] == ',' ? last : std::string_view::npos;
}

struct SyntaxFault {
    std::size_t at;
    std::string advice;
};

SyntaxFault syntaxFault(std::string_view content, std::size_t at) {
    if (content.starts_with("\xFF\xFE") || content.starts_with("\xFE\xFF"))
        return {0, "the file is UTF-16: save it as UTF-8"};
    if (at >= content.size())
        return {at,
                "the file ends too early: is it empty, or a bracket or quotation mark not closed?"};
    if (content[at] == '\0')
        return {at, "a zero byte ends the text: remove it, or save the file as UTF-8"};
    if (const std::size_t comma = commaBeforeBracket(content, at); comma != std::string_view::npos)
        return {comma, "no comma may stand before a closing bracket: remove it from: " +
                           surroundings(content, comma)};
    return {at, "the fault is just before or at: " + surroundings(content, at)};
}

void reportSyntax(const std::string& path, const std::string& content, Findings& findings) {
    const char* const stop = cJSON_GetErrorPtr(); // into the content
    const auto [at, advice] =
        syntaxFault(content, stop ? static_cast<std::size_t>(stop - content.c_str()) : 0);
    const int line = lineOf(content, at);
    findings.note(path, line, text("Error before: [%s]", stop ? stop : ""));
    findings.fatal(path, line, text("file = %s,key = ,value = ,not a JSON document", path.c_str()))
        .advice = advice;
}

} // namespace

int lineOf(std::string_view content, std::size_t at) {
    const std::string_view before = content.substr(0, std::min(at, content.size()));
    return 1 + static_cast<int>(std::count(before.begin(), before.end(), '\n'));
}

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
    const bool tooLarge = content.size() > kLargestJson;
    if (!file || std::ferror(file.get()) || tooLarge) {
        Finding& fault = findings.fatal(
            path, 0, text("****ERROR(Deploy): file = %s,can't access json file", path.c_str()));
        if (tooLarge)
            fault.advice = text("is larger than %zu MiB", kLargestJson >> 20);
    }
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
    if (!root)
        reportSyntax(file, content, findings);
    else if (ReadingWatcher* const watcher = findings.watcher())
        watcher->parsed(*this, content, static_cast<std::size_t>(end - content.c_str()));
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
    std::string value = excludeAnnoValue(item.valuestring);
    if (ReadingWatcher* const watcher = findings.watcher())
        watcher->value({document.file, key}, item, value);
    return value;
}
