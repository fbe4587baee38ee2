// Start-up, step by step in the order that every tool of the tool chain keeps.
#include "shared/indgeninit.h"

#include <cstdlib>
#include <string_view>

#include "shared/genout.h"
#include "shared/genpath.h"
#include "shared/host.h"

static std::string program_path;
static std::string program_name; // messages refer to this very text
static int network_status;

const std::string& gen_program_path() {
    return program_path;
}

int gen_network_status() {
    return network_status;
}

static std::string find_program_path(const char* given) {
    std::string from_command_line = given != nullptr ? given : "";
    if (gen_is_absolute(from_command_line))
        return from_command_line;
    std::string module = host_module_file_name();
    return module.empty() ? from_command_line : module;
}

static void name_program(const char* given) {
    program_path = find_program_path(given);
    constexpr std::string_view suffix = ".exe";
    std::string_view name = gen_last_component(program_path);
    if (gen_ends_with_ignoring_case(name, suffix))
        name.remove_suffix(suffix.size());
    program_name = name;
    gen_set_program_name(program_name.c_str());
}

static bool is_set(const char* variable) {
    return std::getenv(variable) != nullptr;
}

static void set_viewpathing(int mode) {
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

void gen_init(const char* given_path, int& /*argc*/, const char** /*argv*/,
              const gen_init_options& options) {
    network_status = host_start();
    name_program(given_path);
    // Switch settings from files, environment and arguments would be taken here: objtrim has none.
    // The event log would be started here: its routine slot stays empty.
    set_viewpathing(options.viewpath_mode);
    // Crash dumps would get their name from the program path here: objtrim writes none.
}
