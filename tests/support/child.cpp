// What is expected of pieces of code.
#include "support/child.h"

#include <cerrno>

#include "shared/genmessage.h"

namespace {

void run_as_program(const std::function<void()>& body, std::string* gathered) {
    gen_message_sink sink, &before = gen_sink();
    sink.gathered = gathered;
    gen_use_sink(sink);
    gen_set_program_name("objtrim");
    errno = 0;
    body();
    gen_use_sink(before);
    gen_set_program_name("");
}

} // namespace

std::string said_by(const std::function<void()>& body) {
    std::string said;
    run_as_program(body, &said);
    return said;
}

void expect_text(const std::function<void()>& body, const std::string& text) {
    EXPECT_EQ(said_by(body), text);
}

void expect_end(const std::function<void()>& body, int status, const std::string& text) {
    EXPECT_EXIT(run_as_program(body, nullptr), testing::ExitedWithCode(status),
                testing::Matcher<const std::string&>(text));
}

void expect_fatal(const std::vector<std::pair<std::function<void()>, std::string>>& cases) {
    for (const auto& [body, text] : cases)
        expect_end(body, 1, "objtrim: fatal: " + text + "\n");
}

gen_stream_ptr placed_test::stream_of(const std::string& bytes, int64_t position) const {
    place.put("f", bytes);
    gen_stream_ptr stream = gen_open("f", "rb+");
    gen_seek(*stream, position, GEN_SEEK_SET);
    return stream;
}
