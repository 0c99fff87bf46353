#pragma once

#include <string>

namespace weir::test {

/// Writes a self-signed certificate for localhost and its key as "cert.pem" and "key.pem". They take the place of those
/// that are there, as programs that renew certificates do it. `key_kind` is what "openssl req -newkey" takes.
void make_certificate(const std::string& directory, const std::string& organisation,
                      const std::string& key_kind = "ec -pkeyopt ec_paramgen_curve:prime256v1");

}  // namespace weir::test
