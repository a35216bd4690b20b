#pragma once

#include <string_view>

/// Templates: the files of a station as they are packaged. The build fills in Templates.cpp.in.

namespace ctl::init {

/// Of packaging/kubernetes/station/config; @NAME@ and the like stand for a station's values.
extern const std::string_view kDeploymentTemplate;
extern const std::string_view kTablesTemplate;
extern const std::string_view kObjectTemplate;
extern const std::string_view kSiteTemplate;
extern const std::string_view kLeapSecondFile;

/// Of examples/canberra, whose GLONASS satellites have their channels.
extern const std::string_view kExampleObjectFile;

} // namespace ctl::init
