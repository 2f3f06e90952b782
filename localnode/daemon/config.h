// The config file.
#pragma once

#include "localnode/daemon/settings.h"

#include <stdexcept>

namespace tessaly::daemon {

// what() is for the user: for each problem its file, line and column, then the line with a mark below.
class config_error : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

// What the file does not set is as given. Throws config_error, also when the file cannot be read.
settings read_config(const std::string& file, settings otherwise = {});

}  // namespace tessaly::daemon
