// The one place where Beast's own functions are compiled.
#include <boost/beast/src.hpp>
