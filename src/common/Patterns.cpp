#include "common/Patterns.h"
