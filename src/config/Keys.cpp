#include "config/JsonDocument.h"

#include "common/ComText.h"

#include <cjson/cJSON.h>

#include <algorithm>
#include <numeric>

namespace {

constexpr std::size_t kLongestName = 64; // of a key that is shown or compared

std::string leafOf(const std::string& path) {
    return path.substr(path.find('/') + 1); // npos + 1 is 0
}
std::string sectionOf(const std::string& path) {
    const std::size_t slash = path.find('/');
    return slash == std::string::npos ? std::string() : path.substr(0, slash);
}

/// Insertions, deletions and substitutions that turn one name into the other (Levenshtein).
std::size_t editDistance(const std::string& a, const std::string& b) {
    std::vector<std::size_t> row(b.size() + 1);
    std::iota(row.begin(), row.end(), std::size_t{0});
    for (std::size_t i = 0; i < a.size(); ++i) {
        std::size_t diagonal = row[0];
        row[0] = i + 1;
        for (std::size_t j = 0; j < b.size(); ++j) {
            const std::size_t changed = diagonal + (a[i] == b[j] ? 0 : 1);
            diagonal = row[j + 1];
            row[j + 1] = std::min({row[j] + 1, row[j + 1] + 1, changed});
        }
    }
    return row[b.size()];
}

/// The members of one document against the keys that were asked for.
class Ledger {
public:
    Ledger(const JsonDocument& document, Findings& findings)
        : document_(document), findings_(findings) {}

    void check() {
        const cJSON* member = nullptr;
        cJSON_ArrayForEach(member, document_.root.get()) {
            const std::string name = nameOf(*member);
            const std::string section = known(name, &sectionOf);
            if (section.empty()) {
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

    void warn(const std::string& path, std::string what, std::string advice) {
        findings_.remark(
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
        if (findings_.full())
            return;
        const auto whole = [](const std::string& p) { return p; };
        const std::string same = known(path, whole);
        if (!same.empty())
            counts(same, path);
        else if (const std::string elsewhere = known(leafOf(path), &leafOf); !elsewhere.empty())
            warn(path, "key is not known here",
                 text("is %s meant?", pathWithLeaf(elsewhere).c_str()));
        else if (const std::string near = nearest(path); !near.empty())
            warn(path, "key is not known", text("is %s meant?", near.c_str()));
        else
            warn(path, "key is not known", "it is passed over: remove it");
    }

    std::string pathWithLeaf(const std::string& leaf) const {
        return *std::find_if(document_.asked.begin(), document_.asked.end(),
                             [&](const std::string& p) { return leafOf(p) == leaf; });
    }

    /// The key asked for that takes the fewest changes; one of the same section is preferred.
    std::string nearest(const std::string& path) const {
        const std::string leaf = toLower(leafOf(path));
        std::size_t best = 1 + std::max<std::size_t>(leaf.size() / 3, 1);
        std::string found;
        for (const bool sameSection : {true, false})
            for (const std::string& p : document_.asked) {
                const std::size_t d = editDistance(leaf, toLower(leafOf(p)));
                if ((sectionOf(p) == sectionOf(path)) == sameSection && d < best) {
                    best = d;
                    found = p;
                }
            }
        return found;
    }

    const JsonDocument& document_;
    Findings& findings_;
    std::vector<std::string> seen_; // keys and sections that were found
};

} // namespace

void remarkOnKeys(const JsonDocument& document, Findings& findings) {
    Ledger(document, findings).check();
}
