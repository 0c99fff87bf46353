#include "backend/platform/output_file.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include "backend/platform/failure.h"

namespace weir {

OutputFile::OutputFile(std::size_t limit) : file_(::memfd_create("output", MFD_CLOEXEC | MFD_ALLOW_SEALING)) {
  if (!file_) throw_errno("memfd_create");
  if (::ftruncate(file_.get(), static_cast<off_t>(limit)) != 0) throw_errno("ftruncate");
  if (::fcntl(file_.get(), F_ADD_SEALS, F_SEAL_GROW | F_SEAL_SHRINK) != 0) throw_errno("fcntl");
}

std::string OutputFile::content() const {
  // The child shares the offset: it is the number of bytes written.
  std::string text(static_cast<std::size_t>(::lseek(file_.get(), 0, SEEK_CUR)), '\0');
  const ssize_t size = ::pread(file_.get(), text.data(), text.size(), 0);
  if (size < 0) throw_errno("pread");
  text.resize(static_cast<std::size_t>(size));
  return text;
}

}  // namespace weir
