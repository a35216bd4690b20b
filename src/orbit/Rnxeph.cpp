#include "orbit/Rnxeph.h"

#include "base/ComText.h"

#include <algorithm>
#include <memory>

namespace {

template <class Record> int findByName(std::span<const Record> records, std::string_view name) {
    const auto it = std::find_if(records.begin(), records.end(),
                                 [&](const Record& r) { return contains(r.cprn, name); });
    return it == records.end() ? -1 : static_cast<int>(it - records.begin());
}

} // namespace

void Rnxeph_initial(EphemerisStore& store, std::span<const std::string> satelliteNames) {
    std::destroy_at(&store); // in place: a second one is too large for the stack
    std::construct_at(&store);
    store.slotOf.fill(-1);
    for (std::size_t i = 0; i < satelliteNames.size(); ++i) {
        const std::string& name = satelliteNames[i];
        if (!contains(kSystems, name.substr(0, 1)))
            continue;
        int& count = name[0] == 'R' ? store.glonassCount : store.keplerCount;
        const auto slot = static_cast<std::size_t>(count);
        (name[0] == 'R' ? store.glonass[slot].cprn : store.kepler[slot].cprn) = name;
        store.slotOf[i] = count++;
    }
}

void Rnxeph_GPSEPH_initial(GPSEPH& record) {
    record = {};
}
void Rnxeph_GLSEPH_initial(GLSEPH& record) {
    record = {};
}

int map_gpseph_find(std::span<const GPSEPH> records, std::string_view name) {
    return findByName(records, name);
}
int map_glseph_find(std::span<const GLSEPH> records, std::string_view name) {
    return findByName(records, name);
}
