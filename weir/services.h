#pragma once

#include "backend/collaborators/cycle_publisher.h"
#include "backend/services/graphics/gpu_figures.h"
#include "backend/services/profiles/profile_store.h"
#include "backend/services/publishing/publishing_port.h"

namespace weir {

/// The services that the streams reach through `siblings()`. This outlives whatever uses them.
class Services {
 public:
  /// Connects them; the `Config` names the folder of the profiles by then. `gpu_patch_library` as in `ServerSettings`.
  /// The publisher outlives the services.
  Services(const std::string& gpu_patch_library, CyclePublisher& publisher);
  Services(const Services&) = delete;
  Services& operator=(const Services&) = delete;

  /// Reads the profiles; a new store is filled with the shipped ones. Throws `std::system_error`.
  void load_profiles() { profiles_.load(); }
  /// What the web layer does with the profiles.
  ProfileRegistry& profiles() noexcept { return profiles_; }

 private:
  ProfileStore profiles_;
  PublishingPort publishing_port_;
  NginxManager publishing_{publishing_port_};
  GpuDriver gpu_driver_;
  GpuFigures gpu_figures_;
};

}  // namespace weir
