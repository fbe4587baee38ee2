// The two things that can become of an archive.
#pragma once

#include <string>
#include <vector>

#include "archiver/listfile.h"
#include "shared/gentemp.h"

// Replaces members by the listed files and leaves everything else as it is, or makes an archive of
// the files that does not exist yet. `name` is as typed, `real_name` where that leads to. False
// after a report; then there is nothing new.
bool rebuild_archive(obj_history& history, gen_temp_space& temp, const char* name,
                     const std::string& real_name, const std::vector<listed_file>& files);
bool create_archive(gen_temp_space& temp, const char* name, const std::string& real_name,
                    const std::vector<listed_file>& files);
