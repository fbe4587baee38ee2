// The companion debug-name-map of an executable, brought up to date after a strip.
#pragma once

#include "shared/gentemp.h"
#include "util/elfimage.h"
#include "util/elflayout.h"
#include "util/elfpolicy.h"

// Translates the file offsets and section numbers in the map beside `image`, if it is an executable
// that has one. All sections have been laid out; the headers in `image` are still the input's.
void update_dnm(gen_temp_space& temp, const elf_image& image, const section_plan& plan,
                const elf_layout_plan& layout);
