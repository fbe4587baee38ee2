// Field images: one read and one write.
#include "util/fieldimage.h"

field_image read_field_image(gen_stream& stream, uint64_t at, uint64_t size, bool big_endian) {
    field_image image = {.bytes = {}, .big_endian = big_endian, .file_at = at};
    const uint64_t available = at < stream.size ? std::min(size, stream.size - at) : 0;
    image.bytes.resize(available);
    if (gen_seek(stream, static_cast<int64_t>(at), GEN_SEEK_SET) != 0)
        image.bytes.clear();
    else
        image.bytes.resize(gen_read_stream(stream, image.bytes.data(), available));
    return image;
}

bool write_field_image(gen_stream& stream, const char* name, const field_image& image) {
    gen_safe_fseek64(name, &stream, static_cast<int64_t>(image.file_at), GEN_SEEK_SET);
    const int64_t size = static_cast<int64_t>(image.changed_end);
    return gen_safe_fwrite64(name, image.bytes.data(), 1, image.changed_end, &stream) == size;
}

// The last byte is written as it is.
bool is_writable_up_to(gen_stream& stream, const char* name, uint64_t end) {
    field_image last = read_field_image(stream, std::min(end, stream.size) - 1, 1, false);
    last.changed_end = last.bytes.size();
    return write_field_image(stream, name, last);
}
