// All that lives as long as a run of objtrim. The entry owns it, and hands on the part that a
// stripper needs; that of archives needs it all.
#pragma once

#include <atomic>

#include "objfile/arname.h"
#include "objfile/objident.h"
#include "shared/geninstall.h"
#include "shared/genmessage.h"
#include "shared/genscratch.h"
#include "shared/genstart.h"
#include "shared/gentemp.h"
#include "util/options.h"

struct strip_run {
    gen_message_sink messages = gen_sink(); // what a host of this code has diverted stays so
    gen_program program;
    gen_install_dirs install_dirs = {program.gen_program_path};
    std::atomic<uint32_t> temp_counter = 0;
    gen_temp_space temp = {temp_counter};
    gen_scratch scratch = {temp};
    obj_history history;
    // A COFF file with wide counts was met: all behind it are read so.
    bool coff_wide_counts = false;
    ar_name_table long_names;
    strip_options options;
    bool file_seen = false; // work was done: a file was opened, or the usage or version asked for
};
