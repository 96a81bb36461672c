// Resource names are the service's: velactl reads them (with their types) from the service it
// talks to, so that a name its dumpsys shows is a name velactl takes, whatever configuration
// the service was started with. Only --config (the user's word) or --embedded (velactl's own
// service) keep the configuration velactl was started with.
#pragma once

#include "Context.h"

namespace velactl {

// Once per process, before the first command that talks to a service apart.
void useServiceNames(Context& ctx);

}  // namespace velactl
