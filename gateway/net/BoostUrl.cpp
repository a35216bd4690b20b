// The one source that compiles Boost.URL: its package of headers has all of it.
#include <boost/url/src.hpp>
