// The one source that compiles toml++: its package of headers has all of it. Some faults break an
// assertion of it ("[[ ["), and without that are refused as they should.
#define TOML_ASSERT(expr) static_cast<void>(expr)
#define TOML_IMPLEMENTATION
#include <toml++/toml.h>
