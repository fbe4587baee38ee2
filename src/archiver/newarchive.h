// The new archive while it is written: a file beside the old one, which then takes its place.
//
// Small pieces are gathered and written together. The first failure is kept until the end.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "archiver/listfile.h"
#include "shared/genexit.h"
#include "shared/genfile.h"
#include "shared/genreplace.h"
#include "shared/gentemp.h"
#include "shared/host.h"

struct archive_output {
    archive_output() = default;
    ~archive_output() { remove_unfinished(); }
    void remove_unfinished();

    const char* archive_name = nullptr; // as typed, for messages
    std::string real_name;              // the file that is replaced
    std::string temporary;
    gen_unfinished_file unfinished;
    gen_exit_handler at_exit{[this] { remove_unfinished(); }};
    gen_stream_ptr stream;
    std::string gathered;
};

// Makes the file. However the run ends from here on, it does not stay. `old` is the status of the
// archive that is replaced, null when there is none. False after a report.
bool open_output(archive_output& output, gen_temp_space& temp, const char* archive_name,
                 const std::string& real_name, const host_status* old);
void put_bytes(archive_output& output, std::string_view bytes);
// The next `size` bytes of the input. False when it ends before, or cannot be read.
bool put_range(archive_output& output, gen_stream& input, uint64_t size);
// The contents of a member and what fills them up to an even size. False after a report.
bool put_file(archive_output& output, const listed_file& file);
// Closes the new archive and renames it to its place. False after a report.
bool finish_output(archive_output& output, const host_status* old);
