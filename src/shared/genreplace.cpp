// The name behind links, and the owner and permissions of a file that takes another one's place.
#include "shared/genreplace.h"

#include <optional>

#include "shared/genpath.h"

std::string gen_real_name(const char* name) {
    constexpr int most_links = 40; // as many as hosts follow
    std::string real = name;
    for (int links = 0; links < most_links; ++links) {
        const std::optional<std::string> target = host_link_target(real.c_str());
        if (!target)
            break;
        real = gen_is_absolute(*target) ? *target : gen_join(gen_directory_part(real), *target);
    }
    return real;
}

int gen_copy_owner_and_mode(int descriptor, const host_status& from) {
    constexpr uint32_t set_id_bits = 06000;
    uint32_t mode = from.mode;
    const std::optional<host_status> now = host_descriptor_status(descriptor);
    const bool same_owner = now && now->owner == from.owner && now->group == from.group;
    if (!same_owner && host_set_owner(descriptor, from.owner, from.group) != 0)
        mode &= ~set_id_bits;
    if (now && now->mode == mode)
        return 0;
    return host_set_mode(descriptor, mode);
}
