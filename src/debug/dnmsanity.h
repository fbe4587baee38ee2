// What has to hold in a debug-name-map that is not corrupt. Each check reports the first rule that
// is broken and returns 1, else 0.
#pragma once

#include "debug/dnmfile.h"

int STDnm_CheckHeadSanity(const dnm_header& header);
int STDnm_CheckSectionSanity(const dnm_section& section);
// The whole map: as many entries held as the directory says.
int STDnm_CheckSanity(const dnm_map& map);

// Notes that the file is corrupt, as the library's last error.
void dnm_note_corruption(dnm_map& map);
