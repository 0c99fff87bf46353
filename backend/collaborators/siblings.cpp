#include "backend/collaborators/siblings.h"

namespace weir {

Siblings& siblings() {
  static Siblings bundle;
  return bundle;
}

}  // namespace weir
