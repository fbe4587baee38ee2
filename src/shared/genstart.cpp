// Start-up, step by step in the order that every tool of the tool chain keeps.
#include "shared/genstart.h"

#include <cstdlib>
#include <string_view>

#include "shared/genmessage.h"
#include "shared/genpath.h"
#include "shared/host.h"

namespace {

std::string find_program_path(const char* given) {
    std::string from_command_line = given != nullptr ? given : "";
    if (gen_is_absolute(from_command_line))
        return from_command_line;
    std::string module = host_module_file_name();
    return module.empty() ? from_command_line : module;
}

void name_program(gen_program& program, const char* given) {
    program.gen_program_path = find_program_path(given);
    constexpr std::string_view suffix = ".exe";
    std::string_view name = gen_last_component(program.gen_program_path);
    if (gen_ends_with_ignoring_case(name, suffix))
        name.remove_suffix(suffix.size());
    program.gen_program_name = name;
    gen_set_program_name(program.gen_program_name.c_str());
}

bool is_set(const char* variable) {
    return std::getenv(variable) != nullptr;
}

void set_viewpathing(int mode) {
    if (mode < GEN_VIEWPATH_OFF || mode > GEN_VIEWPATH_FAST) {
        gen_error("Illegal viewpath option passed to gen_viewpathing");
        return;
    }
    if (is_set("ORV_VP_OFF"))
        mode = GEN_VIEWPATH_OFF;
    else if (mode == GEN_VIEWPATH_FAST && is_set("ORV_VP_SLOW"))
        mode = GEN_VIEWPATH_SLOW;
    static const char* const reports[] = {"Viewpathing support is OFF.",
                                          "Viewpathing support is ON (SLOW).",
                                          "Viewpathing support is ON (FAST)."};
    if (is_set("ORV_VP_DEBUG"))
        gen_info("%s", reports[mode]);
    // The nodes that NVSRPATH names would be read here: no look-up of objtrim goes through them.
}

} // namespace

void gen_init(gen_program& program, const char* given_path, int& /*argc*/, const char** /*argv*/,
              const gen_init_options& options) {
    program.network_status = host_start();
    name_program(program, given_path);
    // Switch settings from files, environment and arguments would be taken here: objtrim has none.
    // The event log would be started here: its routine slot stays empty.
    set_viewpathing(options.viewpath_mode);
    // Crash dumps would get their name from the program path here: objtrim writes none.
}
