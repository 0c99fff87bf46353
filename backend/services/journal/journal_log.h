#pragma once

#include "backend/collaborators/journal.h"

namespace weir {

/// Writes what happens to streams to the server's log.
class JournalLog final : public JournalReader {
 public:
  void read(const JournalEntry& entry) override;
};

}  // namespace weir
