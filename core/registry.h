// Exported registry helpers that are not part of the public header.
#pragma once

#include "core/arm.h"

extern "C" {
// A process-wide mutex for applications; the library itself never takes it.
KA_API void ka_mutex_lock(void);
KA_API void ka_mutex_unlock(void);
}

// Sets model, DOF and force type of a registered arm from its product text
// (at most `length` characters). 0, or -1 (unknown handle, model or sensor).
int registry_detect_model(const ka_robot_handle *handle, const char *text, size_t length);
