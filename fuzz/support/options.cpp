// Each option stands at its bit. Options are only ever added in place of "-V": saved inputs begin
// with these bits.
#include "support/options.h"

#include <cstring>

static const char* const spellings[option_choices] = {
    "-a",
    "-x",
    "-l",
    "-s",
    "-stripreloc",
    "--strip-orv-debug",
    "--convert-to-secrel-reloc",
    "--keep-used-common",
    "--no-keep-used-common",
    "-wildcards_in_secnames",
    "-vxworks",
    "-X1",
    "-X2",
    "--idll",
    "-F",
    result_option,
    "--dont-update-dnm",
    "-prefixed_msgs",
    "-r=.comment",
    "-r=.debug*",
    "-r=*",
    "-r=.text",
    "-r=",
    "--keep-symbol=main",
    "--keep-symbol=*a*",
    "-wl=f*",
    "--strip-symbol=*",
    "-bl=*e",
    "--strip-symbol=local",
    "--remove-section=.symtab",
    "-X3",
    "-V",
};

std::vector<const char*> chosen_options(uint32_t choice) {
    std::vector<const char*> options;
    for (unsigned i = 0; i < option_choices; ++i)
        if ((choice >> i & 1) != 0)
            options.push_back(spellings[i]);
    return options;
}

uint32_t option_bit(const char* option) {
    for (unsigned i = 0; i < option_choices; ++i)
        if (strcmp(spellings[i], option) == 0)
            return uint32_t{1} << i;
    return 0;
}
