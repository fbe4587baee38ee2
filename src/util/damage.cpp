// Reports that strippers share.
#include "util/damage.h"

#include <cstdarg>

#include "shared/genmem.h"
#include "shared/genmessage.h"

bool report_damage(const char* name, const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    char* text = gen_vasprintf(format, arguments);
    va_end(arguments);
    gen_error("file '%s' is damaged: %s", name, text);
    gen_free_slot(text);
    return false;
}
