// Sections that share bytes: harmless while both are copied, not when one of them changes its size.
#pragma once

#include "util/elfimage.h"
#include "util/elfplan.h"

// Whether no section that goes or is rewritten shares bytes with another section, the file header
// or a header table: these would move or vanish with it. False after a report.
bool changes_are_safe(const elf_image& image, const strip_plan& plan);
