#pragma once

namespace weir {

/// How many of the machine's processors were idle since the last look. Work of low priority (nice) counts as idle.
class IdleProcessors {
 public:
  /// 0 at the first look and where the system does not tell.
  double look();

 private:
  double idle_ = 0;   ///< as /proc/stat counts
  double total_ = 0;  ///< of all processors
};

}  // namespace weir
