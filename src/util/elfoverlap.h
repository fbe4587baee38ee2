// Sections that share bytes: harmless while both are copied, not when one of them goes.
#pragma once

#include "util/elfimage.h"
#include "util/elfpolicy.h"

// Whether no section that is removed shares bytes with another section, the file header or a header
// table: these would move or vanish with it. False after a report.
bool removal_is_safe(const elf_image& image, const section_plan& plan);
