#include "models/Antatx.h"
