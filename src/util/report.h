// What the strippers of all formats report in the same words.
#pragma once

// Reports "file '%s' is damaged: %s", the text made from `format`. Returns false, for the caller to
// hand on.
bool report_damage(const char* name, const char* format, ...) __attribute__((format(printf, 2, 3)));
