// What is expected of children, and placed tests.
#include "support/child.h"

void expect_text(const std::function<void()>& body, const std::string& text) {
    EXPECT_EQ(run_child(body), child_end(child_returned, text));
}

void expect_fatal(const std::vector<fatal_case>& cases) {
    for (auto const& [body, text] : cases)
        EXPECT_EQ(run_child(body), child_end(1, "objtrim: fatal: " + std::string(text) + "\n"));
}

gen_stream_ptr placed_test::stream_of(const std::string& bytes, int64_t position) const {
    place.put("f", bytes);
    gen_stream_ptr stream = gen_open("f", "rb+");
    gen_seek(*stream, position, GEN_SEEK_SET);
    return stream;
}
