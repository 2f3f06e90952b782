#include "vtpsrv/vtpsvrfy_privilege.h"

#include <unistd.h>

namespace tessaly {

u16 tps_verify_privileges() noexcept
{
    return geteuid() == 0;
}

}  // namespace tessaly
