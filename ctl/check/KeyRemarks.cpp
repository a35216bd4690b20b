#include "ctl/check/EditDistance.h"
#include "ctl/check/Remarks.h"

#include "base/ComText.h"
#include "config/JsonDocument.h"

#include <cjson/cJSON.h>

#include <algorithm>
#include <utility>

namespace ctl::check {

namespace {

constexpr std::size_t kLongestName = 64; // of a key that is shown or compared

std::string leafOf(const std::string& path) {
    return path.substr(path.find('/') + 1); // npos + 1 is 0
}
std::string wholeOf(const std::string& path) {
    return path;
}
std::string sectionOf(const std::string& path) {
    const std::size_t slash = path.find('/');
    return slash == std::string::npos ? std::string() : path.substr(0, slash);
}

/// The members of one document against the keys that were asked for.
class Ledger {
public:
    Ledger(const JsonDocument& document, const Findings& findings, Remarks& remarks)
        : document_(document), findings_(findings), remarks_(remarks) {}

    void check() {
        checkSections();
        const cJSON* member = nullptr;
        cJSON_ArrayForEach(member, document_.root.get()) {
            const std::string name = nameOf(*member);
            const std::string section = known(name, &sectionOf);
            if (section.empty() && pointer_string(meant_, name) >= 0) {
                continue; // told with the section that is missing
            } else if (section.empty()) {
                judge(name);
            } else if (counts(section, name)) {
                const cJSON* child = nullptr;
                cJSON_ArrayForEach(child, member) if (child->string)
                    judge(section + "/" + nameOf(*child));
            }
        }
    }

private:
    static std::string nameOf(const cJSON& member) {
        return std::string(member.string ? member.string : "").substr(0, kLongestName);
    }

    /// What `part` takes of the first key asked for where that is the same name, whatever the case.
    std::string known(const std::string& name, std::string (*part)(const std::string&)) const {
        for (const std::string& path : document_.asked)
            if (std::string p = part(path); !p.empty() && toLower(p) == toLower(name))
                return p;
        return {};
    }

    /// Sections that readers asked for and that are not there, or are no objects. The readers have
    /// told of every key of theirs already, in the lines of the service.
    void checkSections() {
        std::string before;
        for (const std::string& path : document_.asked) {
            const std::string section = sectionOf(path);
            if (section == std::exchange(before, section) || section.empty())
                continue;
            const cJSON* const item = cJSON_GetObjectItem(document_.root.get(), section.c_str());
            if (!item)
                tellMissing(section);
            else if (!cJSON_IsObject(item))
                tell(section, "is no section",
                     text("write its keys in braces: \"%s\": {...}", section.c_str()));
        }
    }

    void tellMissing(const std::string& section) {
        const std::string meant = meantFor(section);
        tell(section, "section is missing",
             meant.empty() ? "add it, with all its keys"
                           : text("is %s meant? Write %s", meant.c_str(), section.c_str()));
        if (!meant.empty())
            meant_.push_back(meant);
    }

    void tell(const std::string& section, std::string what, std::string advice) {
        remarks_.add(
            {Severity::fatal, document_.file, 0, section, std::move(what), std::move(advice)});
    }

    /// The unknown object that stands for a section: one with a similar name, or with most of its
    /// keys.
    std::string meantFor(const std::string& section) const {
        const cJSON* member = nullptr;
        std::string withKeys;
        std::ptrdiff_t most = 0;
        cJSON_ArrayForEach(member, document_.root.get()) {
            std::string name = nameOf(*member);
            if (!cJSON_IsObject(member) || !known(name, &sectionOf).empty() ||
                !known(name, &wholeOf).empty())
                continue;
            if (editDistance(toLower(section), toLower(name)) < tolerance(section))
                return name;
            if (const std::ptrdiff_t held = keysOf(*member, section); held > most) {
                most = held;
                withKeys = name;
            }
        }
        return withKeys;
    }

    std::ptrdiff_t keysOf(const cJSON& object, const std::string& section) const {
        return std::count_if(document_.asked.begin(), document_.asked.end(),
                             [&](const std::string& path) {
                                 return sectionOf(path) == section &&
                                        cJSON_HasObjectItem(&object, leafOf(path).c_str());
                             });
    }

    bool anyMissing() const {
        return std::any_of(findings_.list().begin(), findings_.list().end(), [&](const Finding& f) {
            return f.id == FindingId::keyMissing && f.file == document_.file;
        });
    }

    void warn(const std::string& path, std::string what, std::string advice) {
        remarks_.add(
            {Severity::warning, document_.file, 0, path, std::move(what), std::move(advice)});
    }

    /// Whether a member is the one that its readers found; the library takes the first.
    bool counts(const std::string& path, const std::string& written) {
        const bool first = std::find(seen_.begin(), seen_.end(), path) == seen_.end();
        seen_.push_back(path);
        if (!first)
            warn(written, "stands a second time", "only the first one is read: remove one of them");
        else if (path != written)
            warn(written, text("is read as %s", path.c_str()), "write it as it is read");
        return first;
    }

    void judge(const std::string& path) {
        if (remarks_.full())
            return;
        const std::string same = known(path, &wholeOf);
        if (!same.empty())
            counts(same, path);
        else if (const std::string elsewhere = known(leafOf(path), &leafOf); !elsewhere.empty())
            warn(path, "key is not known here",
                 text("is %s meant?", pathWithLeaf(elsewhere).c_str()));
        else if (!known(leafOf(path), &sectionOf).empty())
            warn(path, "key is not known here",
                 "a section stands in the outermost braces: is one closed too late?");
        else if (const std::string near = nearest(path); !near.empty())
            warn(path, "key is not known", text("is %s meant?", near.c_str()));
        else
            warn(path, "key is not known",
                 anyMissing() ? "nothing reads it: is one of the missing keys meant?"
                              : "it is passed over: remove it");
    }

    std::string pathWithLeaf(const std::string& leaf) const {
        return *std::find_if(document_.asked.begin(), document_.asked.end(),
                             [&](const std::string& p) { return leafOf(p) == leaf; });
    }

    /// Edit distance from which a name counts as another one.
    static std::size_t tolerance(const std::string& name) {
        return 1 + std::max<std::size_t>(name.size() / 3, 1);
    }

    /// The key asked for that takes the fewest changes; one of the same section is preferred. A
    /// name of the outermost braces may also be that of a section.
    std::string nearest(const std::string& path) const {
        const std::string leaf = toLower(leafOf(path));
        std::size_t best = tolerance(leaf);
        std::string found;
        const auto take = [&](const std::string& p) {
            const std::size_t d = editDistance(leaf, toLower(leafOf(p)));
            if (d < best) {
                best = d;
                found = p;
            }
        };
        if (sectionOf(path).empty())
            for (const std::string& p : document_.asked)
                if (p != leafOf(p))
                    take(sectionOf(p));
        for (const bool sameSection : {true, false})
            for (const std::string& p : document_.asked)
                if ((sectionOf(p) == sectionOf(path)) == sameSection)
                    take(p);
        return found;
    }

    const JsonDocument& document_;
    const Findings& findings_;
    Remarks& remarks_;
    std::vector<std::string> seen_;  // keys and sections that were found
    std::vector<std::string> meant_; // unknown members that a missing section has claimed
};

} // namespace

void remarkOnKeys(const JsonDocument& document, const Findings& findings, Remarks& remarks) {
    Ledger(document, findings, remarks).check();
}

} // namespace ctl::check
