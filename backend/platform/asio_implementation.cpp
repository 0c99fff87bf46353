// The one place where Asio's own code is compiled (BOOST_ASIO_SEPARATE_COMPILATION).
#include <boost/asio/impl/src.hpp>
