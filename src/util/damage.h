// What the strippers of all formats report in the same words.
#pragma once

#include "shared/genmessage.h"

// Reports "file '%s' is damaged: %s", the text made from `format`. Returns false, for the caller to
// hand on.
GEN_PRINTF(2, 3)
bool report_damage(const char* name, const char* format, ...);
