#include "tests/support/certificate.h"

#include <fmt/core.h>

#include <cstdlib>
#include <filesystem>
#include <stdexcept>

namespace weir::test {

void make_certificate(const std::string& directory, const std::string& organisation, const std::string& key_kind) {
  const std::string command = fmt::format(
      "cd {} && openssl req -x509 -newkey {} -nodes -days 2 -subj /O={}/CN=localhost "
      "-addext subjectAltName=DNS:localhost -keyout new-key.pem -out new-cert.pem 2>/dev/null",
      directory, key_kind, organisation);
  if (std::system(command.c_str()) != 0) throw std::runtime_error("openssl makes no certificate");
  std::filesystem::rename(directory + "/new-key.pem", directory + "/key.pem");
  std::filesystem::rename(directory + "/new-cert.pem", directory + "/cert.pem");
}

}  // namespace weir::test
