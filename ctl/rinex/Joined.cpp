#include "ctl/rinex/Joined.h"

#include "base/Findings.h"
#include "rinex/Rnxobs.h"

#include <algorithm>
#include <memory>
#include <stdexcept>

namespace ctl::rinex {

namespace {

/// FNV-1a.
void digest(std::uint64_t& sum, std::string_view bytes) {
    for (const char c : bytes)
        sum = (sum ^ static_cast<unsigned char>(c)) * 0x100000001B3U;
}

bool hasValue(const SatelliteLine& s) {
    for (std::size_t i = 0; i < s.fields.size() / kFieldWidth; ++i)
        if (!isNothing(s.value(i)))
            return true;
    return false;
}

void withoutEmpty(Record& record) {
    std::erase_if(record.satellites, [](const SatelliteLine& s) { return !hasValue(s); });
}

} // namespace

Joined::Joined(const std::vector<std::string>& files, const Records::Faults& faults)
    : files_(files) {
    for (std::size_t i = 0; i < files_.size(); ++i)
        survey(i, faults);
    sort(faults);
}

void Joined::survey(std::size_t file, const Records::Faults& faults) {
    Records records(files_[file], faults);
    std::int64_t before = 0;
    for (Record record; records.next(record); before = record.ticks) {
        if (record.ticks < before)
            disordered_.insert(files_[file]);
        for (const SatelliteLine& s : record.satellites) {
            SystemContents& system = systems_[s.name[0]];
            system.columns.resize(Rnxobs_m_initObsType(s.name[0]).size());
            for (std::size_t i = 0; i < system.columns.size(); ++i)
                system.columns[i] = system.columns[i] || !isNothing(s.value(i));
            if (hasValue(s))
                system.satellites.insert(s.name);
            else
                ++system.withoutValue;
        }
        withoutEmpty(record);
        if (record.satellites.empty())
            continue;
        Epoch epoch{record.ticks, record.place, file, 0xCBF29CE484222325U};
        for (const SatelliteLine& s : record.satellites) {
            digest(epoch.digest, s.name);
            digest(epoch.digest, s.fields);
        }
        epochs_.push_back(epoch);
    }
}

/// Of several epochs of one time the first stays.
void Joined::sort(const Records::Faults& faults) {
    std::stable_sort(epochs_.begin(), epochs_.end(),
                     [](const Epoch& a, const Epoch& b) { return a.ticks < b.ticks; });
    std::vector<Epoch> kept;
    kept.reserve(epochs_.size());
    for (const Epoch& e : epochs_) {
        if (kept.empty() || kept.back().ticks != e.ticks) {
            kept.push_back(e);
            continue;
        }
        const Epoch& first = kept.back();
        if (first.digest == e.digest)
            ++repeated_;
        else
            faults({files_[e.file], e.place.line,
                    text("the epoch is there already with other values, in %s:%d; left out",
                         files_[first.file].c_str(), first.place.line)});
    }
    epochs_ = std::move(kept);
}

std::int64_t Joined::intervalTicks() const {
    std::map<std::int64_t, std::uint64_t> steps;
    for (std::size_t i = 1; i < epochs_.size(); ++i)
        ++steps[epochs_[i].ticks - epochs_[i - 1].ticks];
    const auto most =
        std::max_element(steps.begin(), steps.end(),
                         [](const auto& a, const auto& b) { return a.second < b.second; });
    return most == steps.end() ? 0 : most->first;
}

void Joined::forEach(const std::function<void(const Record&)>& take) const {
    std::unique_ptr<Records> records;
    std::size_t open = files_.size();
    Record record;
    for (const Epoch& epoch : epochs_) {
        if (open != epoch.file)
            records = std::make_unique<Records>(files_[epoch.file], [](const Fault&) {});
        open = epoch.file;
        records->goTo(epoch.place);
        if (!records->next(record) || record.ticks != epoch.ticks)
            throw std::runtime_error(files_[epoch.file] + ": was changed while it was read");
        withoutEmpty(record);
        take(record);
    }
}

} // namespace ctl::rinex
