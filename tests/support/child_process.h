// A program run as a child of the test: started with arguments, waited for
// with a limit, and stopped by its process id when it overstays.
#pragma once

#include "sim/net/process.h"

namespace ka_test {

using sim::net::child_process;

} // namespace ka_test
