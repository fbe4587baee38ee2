// The entry of lbm, which puts files back into the archive that they were taken from.
//
// There is one form of the command line and no other: one that a blank in a name has torn apart is
// refused, so that no other archive than the one that is meant can come to harm.
#include <cerrno>
#include <cstring>
#include <optional>
#include <vector>

#include "archiver/rebuild.h"
#include "shared/genexit.h"
#include "shared/genreplace.h"
#include "shared/genstart.h"
#include "shared/host.h"

namespace {

// A new archive takes the place of nothing, so it must be certain that there is none.
bool is_missing(const std::string& name) {
    const int descriptor = host_open(name.c_str(), host_access::read);
    if (descriptor >= 0)
        host_close(descriptor);
    return descriptor < 0 && errno == ENOENT;
}

bool run(const char* archive_name, const char* list_name) {
    obj_history history;
    const std::optional<std::vector<listed_file>> files =
        read_list(history, list_name, archive_name);
    if (!files)
        return false;
    const std::string real_name = gen_real_name(archive_name);
    std::atomic<uint32_t> temp_counter = 0;
    gen_temp_space temp = {temp_counter};
    return is_missing(real_name) ? create_archive(temp, archive_name, real_name, *files)
                                 : rebuild_archive(history, temp, archive_name, real_name, *files);
}

} // namespace

int main(int argc, char** argv) {
    const char* program_path[] = {argc > 0 ? argv[0] : ""};
    int program_path_count = 1;
    gen_program program;
    gen_init(program, program_path[0], program_path_count, program_path, gen_init_options());
    gen_set_program_name("lbm");

    const bool is_sound = argc == 4 && strcmp(argv[1], "-rc") == 0 && argv[2][0] != '\0' &&
                          argv[3][0] == '@' && argv[3][1] != '\0';
    if (!is_sound) {
        gen_error("usage: lbm -rc archive @listfile");
        gen_exit(status_failure);
    }
    if (!run(argv[2], argv[3] + 1))
        gen_exit(status_failure);
    gen_exit_success();
}
