// Identification of a file, or of what lies in the middle of one.
#include "objfile/objident.h"
#include "shared/genfile.h"
#include "support/checks.h"

namespace {

constexpr const char* names[] = {"input", "input.pro", "input.dbp", "input.gpro"};

void identify(const char* name, uint64_t at, const execution& run) {
    const gen_stream_ptr stream = gen_safe_fopen(name, "file", "rb");
    gen_seek(*stream, static_cast<int64_t>(at), GEN_SEEK_SET);
    obj_history history, fresh;
    const objinfo* const first = obj_identify(history, stream.get(), name);
    require(stream->position == at, run, "the position is kept");
    require(!first || first->kind <= OBJ_UNKNOWN, run, "a kind is one of the list");
    require(!first || first->class_bits % 32 == 0, run, "a class is one of three");
    const objinfo info = first ? *first : objinfo();
    const objinfo* const second = obj_identify(fresh, stream.get(), name);
    require(!first == !second, run, "a file is the same twice");
    if (second)
        require(second->kind == info.kind && second->class_bits == info.class_bits, run,
                "a kind is the same twice");
    obj_is_coff_family(history, stream.get(), name);
    obj_is_known_object(history, stream.get(), nullptr);
    archive_magic_kind(stream.get(), name);
    require(stream->position == at, run, "the position is still kept");
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const fuzz_input input = take_input(data, size);
    const char* const name = names[input.choice % 4];
    put_file(name, input.file);
    const kept_file before = look_at_file(name);
    execution none;
    const execution run = run_routine([&] { identify(name, input.choice >> 2 & 0xFF, none); });
    require(!run.is_fatal() || run.has_said("seek failed to"), run,
            "only a place that no file reaches ends the program");
    require(look_at_file(name) == before && names_in(".").size() == 1, run, "nothing changes");
    clear_directory();
    return 0;
}
