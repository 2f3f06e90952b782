// The config file.
#pragma once

#include "localnode/daemon/settings.h"
#include "service/config_file.h"

namespace tessaly::daemon {

// What the file does not set is as given. Throws config_error.
settings read_config(const std::string& file, settings otherwise = {});

}  // namespace tessaly::daemon
