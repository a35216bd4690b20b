#include "common/DeployConfig.h"

DeployConfig DLY;
