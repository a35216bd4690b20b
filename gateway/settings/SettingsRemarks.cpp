#include "gateway/settings/SettingsRemarks.h"

#include <algorithm>
#include <array>
#include <tuple>

namespace gateway {

namespace {

constexpr std::size_t kMostRemarks = 1000;

} // namespace

FilePlace SettingsRemarks::placeOf(std::size_t section, const std::string& key) const {
    for (const std::string& tried : {key, std::string()})
        if (const auto at = places_.find({section, tried}); at != places_.end())
            return at->second;
    return {};
}

std::string SettingsRemarks::keyText(std::size_t section, const std::string& key) const {
    if (section == kFileSection)
        return key;
    constexpr std::array names{"", "gateway", "caster", "web", "alarms"};
    static_assert(names.size() == kFirstStation);
    const auto known = names_.find(section);
    const std::string name = section < kFirstStation ? names[section]
                             : known != names_.end()
                                 ? "station " + known->second
                                 : "station " + std::to_string(section - kFirstStation + 1);
    return key.empty() ? name : name + "/" + key;
}

void SettingsRemarks::add(ctl::check::Remark remark) {
    if (list_.size() < kMostRemarks)
        list_.push_back(std::move(remark));
}

void SettingsRemarks::error(std::size_t section, const std::string& key, std::string wrong,
                            std::string advice) {
    error(placeOf(section, key), section, key, std::move(wrong), std::move(advice));
}

void SettingsRemarks::warn(std::size_t section, const std::string& key, std::string wrong,
                           std::string advice) {
    const FilePlace at = placeOf(section, key);
    add({Severity::warning, file_, at.line, keyText(section, key), std::move(wrong),
         std::move(advice), at.column});
}

void SettingsRemarks::error(FilePlace at, std::size_t section, const std::string& key,
                            std::string wrong, std::string advice) {
    add({Severity::fatal, file_, at.line, keyText(section, key), std::move(wrong),
         std::move(advice), at.column});
}

std::vector<ctl::check::Remark> SettingsRemarks::sorted() && {
    const auto rank = [&](const ctl::check::Remark& r) {
        return std::tuple(r.file != file_, std::string_view(r.file == file_ ? "" : r.file), r.line,
                          r.column);
    };
    std::stable_sort(list_.begin(), list_.end(),
                     [&](const auto& a, const auto& b) { return rank(a) < rank(b); });
    return std::move(list_);
}

} // namespace gateway
