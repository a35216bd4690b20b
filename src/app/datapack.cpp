#include "app/datapack.h"
