// Tells the service manager how the node is, if one has started it and asks.
#pragma once

#include <string_view>

namespace tessaly::service {

// State: lines such as "READY=1". A manager that cannot be told is no reason to stop.
void notify_manager(std::string_view state) noexcept;

}  // namespace tessaly::service
