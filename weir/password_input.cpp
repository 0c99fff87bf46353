#include "weir/password_input.h"

#include <fmt/core.h>
#include <termios.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <stdexcept>

#include "backend/web/access/secrets.h"

namespace weir {

namespace {

constexpr char ctrl_c = 3;

/// The terminal does not show what is typed, and hands on Ctrl-C at once: a signal would leave it so.
class HiddenInput {
 public:
  HiddenInput() {
    ::tcgetattr(STDIN_FILENO, &before_);
    termios hidden = before_;
    hidden.c_lflag &= ~static_cast<tcflag_t>(ECHO | ISIG);
    hidden.c_cc[VEOL] = ctrl_c;
    ::tcsetattr(STDIN_FILENO, TCSAFLUSH, &hidden);
  }
  ~HiddenInput() {
    ::tcsetattr(STDIN_FILENO, TCSAFLUSH, &before_);
    fmt::print(stderr, "\n");
  }
  HiddenInput(const HiddenInput&) = delete;
  HiddenInput& operator=(const HiddenInput&) = delete;

 private:
  termios before_{};
};

// Of a longer line so much that it is seen to be too long. What follows is left to others.
std::string read_line() {
  std::string line;
  char byte = 0;
  ssize_t size = 0;
  while (line.size() <= max_password_bytes + 1) {
    size = ::read(STDIN_FILENO, &byte, 1);
    if (size < 0 && errno == EINTR) continue;
    if (size <= 0 || byte == '\n') break;
    if (byte == ctrl_c) throw std::runtime_error("Cancelled");
    line += byte;
  }
  if (size <= 0 && line.empty()) throw std::runtime_error("No password was given");
  if (line.ends_with('\r')) line.pop_back();
  return line;
}

std::string ask(const char* prompt) {
  fmt::print(stderr, "{}: ", prompt);
  const HiddenInput hidden;
  return read_line();
}

}  // namespace

std::string read_new_password() {
  const bool is_typed = ::isatty(STDIN_FILENO) == 1;
  const std::string password = is_typed ? ask("New password") : read_line();
  if (password.size() < min_password_bytes || password.size() > max_password_bytes)
    throw std::runtime_error(fmt::format("The password needs {} to {} bytes", min_password_bytes, max_password_bytes));
  if (is_typed && ask("Once more") != password) throw std::runtime_error("The passwords differ");
  return password;
}

}  // namespace weir
