// Makes the input files of the benchmark. What they say means nothing; their structure is that of
// the programs that a linker writes, so that every strip tool takes them.
//
//     corpus KIND SIZE FILE     SIZE scales the kind's numbers; 1 is what the results are made with
#include <cstdlib>
#include <string>

#include "kinds.h"

namespace {

void make(const std::string& kind, output& to) {
    if (kind == "small")
        make_program(to, 4096, 1024, 4096, 40, 30);
    else if (kind == "cpp")
        make_program(to, megabytes(22), megabytes(4), megabytes(335), scaled(120000), 90);
    else if (kind == "loaded")
        make_program(to, megabytes(256), megabytes(8), megabytes(1), scaled(10000), 40);
    else if (kind == "symbols")
        make_program(to, megabytes(8), megabytes(2), megabytes(2), scaled(1000000), 110);
    else if (kind == "sections60000")
        make_object(to, scaled(60000), megabytes(4), 40);
    else if (kind == "sections70000")
        make_object(to, scaled(70000), megabytes(4), 40);
    else if (kind == "member")
        make_object(to, 12, 6000, 30);
    else if (kind == "relocated")
        make_relocated(to);
    else if (kind == "sparse")
        make_sparse(to);
    else if (kind == "image")
        make_pe(to);
    else if (kind == "map")
        make_map(to);
    else
        fail("no such kind");
}

} // namespace

int main(int argc, char** argv) {
    if (argc != 4)
        return 1;
    scale = atof(argv[2]);
    // A file has its name only when it is complete.
    const std::string unfinished = std::string(argv[3]) + ".part";
    output to{fopen(unfinished.c_str(), "wb")};
    if (!to.file)
        fail(argv[3]);
    make(argv[1], to);
    if (fclose(to.file) != 0 || rename(unfinished.c_str(), argv[3]) != 0)
        fail(argv[3]);
}
