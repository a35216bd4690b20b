// The one source that compiles toml++: its package of headers has all of it.
#define TOML_IMPLEMENTATION
#include <toml++/toml.h>
