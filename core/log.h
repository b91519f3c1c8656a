// Process-wide logger: four levels, one replaceable sink, optional file.
#pragma once

#include "ka_api.h"

extern "C" {
KA_API void default_log(const char *format, va_list args);
KA_API void custom_api_log(const char *format, va_list args);
}
