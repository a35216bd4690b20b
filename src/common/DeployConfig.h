#pragma once

#include "common/Configuration.h"
#include "common/Session.h"

/// DeployConfig: the process-wide record `DLY`: configuration, session and current epoch.

struct DeployConfig : Deployment, CurrentEpoch {
    bool outputUsed = false; // a file in the output folder has been opened
};
extern DeployConfig DLY;
