#pragma once

#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "backend/services/configuration/server_settings.h"

namespace weir {

/// One setting as a person writes it: "probe-timeout" is --probe-timeout on the command line, WEIR_PROBE_TIMEOUT in the
/// environment and "probe-timeout = …" in the configuration file.
struct Setting {
  std::string name;
  std::string value_name;  ///< how the help shows the value; empty for a switch
  std::string description;
  /// Stores the value. Throws `std::invalid_argument` with what is expected instead.
  std::function<void(ServerSettings&, const std::string&)> set;

  std::string environment_name() const;
};

/// All settings, in the order of the help.
const std::vector<Setting>& setting_table();

/// Stores one value; `origin` says where it was found. Throws `SettingsError`.
void apply_setting(ServerSettings& settings, const Setting& setting, const std::string& value, std::string_view origin);

}  // namespace weir
