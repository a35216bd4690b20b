#include "models/Tropo_vmf1.h"
