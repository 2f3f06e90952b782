#include "v6/records/main_cb.h"

namespace tessaly {

main_control_block main_cb;

}  // namespace tessaly
