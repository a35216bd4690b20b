#pragma once

#include "base/Findings.h"
#include "config/Configuration.h"

/// ObjectFile: satellites and stations from the file that the tables name ("object").

void readObjectFile(Deployment& out, Findings& findings);
void Station_initial(StationRecord& record);
void Satellite_initial(SatelliteRecord& record);
