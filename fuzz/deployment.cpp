#include "app/Service.h"
#include "ctl/check/Check.h"
#include "fuzz/fatal.h"
#include "fuzz/support.h"
#include "gnss/Clock.h"
#include "gnss/ComTime.h"
#include "gnss/Leaps.h"
#include "reference/standard/sky.h"

#include <cjson/cJSON.h>

#include <algorithm>
#include <array>
#include <filesystem>
#include <memory>
#include <sstream>
#include <unistd.h>

// A whole deployment, as `check` reads it; one that the service would start with then answers a
// recorded epoch. The input holds the files, each behind a line "=== NAME"; "switches" are those of
// the command line, a line each.

namespace {

constexpr std::array<const char*, 9> kFiles{"vrs.json",     "tables.json",  "session.obj",
                                            "site.crd",     "leapsec.tab",  "satellites.nav",
                                            "antennas.atx", "antennas.nam", "names.tab"};
constexpr std::string_view kMark = "=== ";
const ref::GpsTime kNow{2009, 430650};
const ref::Vec3 kSite{-4467074.3577, 2683011.9038, -3667008.2845};

/// The part of a name; npos where there is none.
std::string_view partOf(std::string_view input, std::string_view name, bool& there) {
    const std::string head = std::string(kMark) + std::string(name) + "\n";
    const std::size_t at = input.starts_with(head) ? 0 : input.find("\n" + head);
    there = at != std::string_view::npos;
    if (!there)
        return {};
    const std::string_view part = input.substr(at + head.size() + (at == 0 ? 0 : 1));
    return part.substr(0, part.starts_with(kMark) ? 0 : part.find("\n" + std::string(kMark)));
}

std::vector<std::string> linesOf(std::string_view text) {
    std::vector<std::string> lines;
    for (std::size_t end = 0; !text.empty(); text = text.substr(std::min(end + 1, text.size()))) {
        end = std::min(text.find('\n'), text.size());
        lines.emplace_back(text.substr(0, end));
    }
    return lines;
}

class AnsweringService {
public:
    AnsweringService() {
        utcNow = [] { return gpst2utc(gpst2time(kNow.week, kNow.sow)); };
        service_->intake.onrtcm = [this](std::uint32_t status, const std::uint8_t*, std::int32_t) {
            if (status == kEpoch)
                static_cast<void>(service_->answer(0, reply_));
        };
        ref::Sky sky(kSite);
        const auto add = [&](const ref::Bytes& f) {
            stream_.insert(stream_.end(), f.begin(), f.end());
        };
        const std::vector<ref::Bytes> ephemerides = sky.ephemerisFrames(kNow);
        for (std::size_t i = 0; i < ephemerides.size(); i += 8)
            add(ephemerides[i]);
        for (const ref::Bytes& f : sky.epochFrames(kNow, 4))
            add(f);
    }
    /// What the service does once it is configured. Nothing is saved: paths are the fuzzer's.
    void run(Deployment deployment) {
        static_cast<Deployment&>(service_->record) = std::move(deployment);
        service_->record.rawSave = service_->record.vrsSave = false;
        service_->prepareSession();
        fatalLineOf([&] {
            StreamReader(service_->intake, 0, stream_.data(), static_cast<int>(stream_.size()));
        });
        printed_.take(lines_);
    }

private:
    const std::unique_ptr<Service> service_ = std::make_unique<Service>();
    std::array<std::uint8_t, kLongestReply> reply_;
    Printed printed_;
    std::string lines_;
    ref::Bytes stream_;
};

std::unique_ptr<AnsweringService> answering;
std::unique_ptr<Folder> folder;

void check(std::span<const std::string> switches) {
    Deployment deployment;
    const ctl::check::CheckResult result =
        ctl::check::checkDeployment(deployment, "vrs.json", switches);
    std::ostringstream text;
    ctl::check::printCheck(result, text);
    using Json = std::unique_ptr<cJSON, void (*)(cJSON*)>;
    const Json made(ctl::check::jsonOfCheck(result), cJSON_Delete);
    const std::unique_ptr<char, void (*)(void*)> printed(cJSON_PrintUnformatted(made.get()),
                                                         cJSON_free);
    const Json read(cJSON_Parse(printed.get()), cJSON_Delete);
    require(cJSON_IsObject(read.get()), "a JSON object");
    for (const char c : text.str())
        require(c == '\n' || (static_cast<unsigned char>(c) >= 0x20 && c != 0x7F),
                "no byte that a terminal obeys");
    if (result.count(Severity::fatal) == 0)
        answering->run(std::move(deployment));
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int* /*argc*/, char*** /*argv*/) {
    answering = std::make_unique<AnsweringService>();
    folder = std::make_unique<Folder>();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view input = textOf({data, size});
    bool there = false;
    for (const char* const name : kFiles) {
        const std::string_view part = partOf(input, name, there);
        if (there)
            folder->write(name, part);
        else
            folder->remove(name);
    }
    std::vector<std::string> switches = linesOf(partOf(input, "switches", there));
    const Folder::Within within(*folder);
    check(switches);
    return 0;
}
