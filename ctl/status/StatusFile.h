#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

/// StatusFile: the state that a service writes (common/status), one JSON object. A path such as
/// "epochs/last/received_unix_s" names a value; the last part of the name of a number is its unit.
/// What is not there is not known.

struct cJSON;

namespace ctl::status {

class StatusFile {
public:
    /// std::runtime_error where the file cannot be read or is none of a service.
    explicit StatusFile(const std::string& path);
    StatusFile(std::string name, std::string_view content);

    const std::string& name() const { return name_; }
    const cJSON* root() const { return root_.get(); }

    std::optional<double> number(std::string_view path) const;
    /// A counter or the like, 0 where it is not there.
    std::uint64_t count(std::string_view path) const;
    /// Made fit for a terminal; empty where it is not there.
    std::string text(std::string_view path) const;
    bool isTrue(std::string_view path) const;

    /// A value under a path whose '*' stand for any name: these names, in order, and the value.
    using Take = std::function<void(const std::vector<std::string>& names, const cJSON& value)>;
    void forEach(std::string_view path, const Take& take) const;

private:
    const cJSON* find(std::string_view path) const;

    std::string name_;
    std::unique_ptr<cJSON, void (*)(cJSON*)> root_;
};

/// Seconds since the last epoch came; nothing where none has come yet.
std::optional<double> lastEpochAgeS(const StatusFile& status, double nowUnixS);
/// The time of the machine's clock.
double nowUnixS();

} // namespace ctl::status
