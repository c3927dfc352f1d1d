// The collector's multipart/form-data reader: what it hands on of a body
// that arrives in pieces of every size, boundaries split anywhere.
#include <gmock/gmock.h>

#include "server/multipart_reader.h"

namespace {

// What the reader handed on, "[name|file name]content" per part, and whether
// the body was complete.
std::string read_in_pieces(const std::string& content_type, const std::string& body, size_t piece,
                           bool& complete) {
    std::string seen;
    multipart_reader reader(
        content_type,
        [&](const multipart_reader::part& part) {
            seen += "[" + part.name + "|" + part.filename + "]";
            return part.name != "stop";
        },
        [&](const char* data, size_t size) { return seen.append(data, size), true; });
    bool fed = true;
    for (size_t at = 0; at < body.size() && fed; at += piece)
        fed = reader.feed(body.data() + at, std::min(piece, body.size() - at));
    complete = reader.complete();
    return seen;
}

TEST(multipart_reader, hands_on_each_part_however_the_body_is_cut) {
    const std::string type = "multipart/form-data; boundary=b0";
    const std::string part =
        "--b0\r\nContent-Disposition: form-data; name=\"file\"; filename=\"a;b.zip\"\r\n\r\n";
    // clang-format off
    const std::vector<std::tuple<const char*, std::string, std::string, std::string, bool>> table{
        {"a part, then one without headers", type, part + "zip\r\n--b0\r\n\r\ndata\r\n--b0--\r\n",
            "[file|a;b.zip]zip[|]data", true},
        {"two parts, a preamble, an epilogue", type,
            "preamble\r\n" + part + "x\r\n--b\r\n-\r\n--b0\r\nContent-Disposition: form-data; name=note\r\n\r\nn\r\n--b0--\r\nepilogue",
            "[file|a;b.zip]x\r\n--b\r\n-[note|]n", true},
        {"a quoted boundary", "multipart/form-data; boundary=\"b0\"; charset=x", part + "\r\n--b0--", "[file|a;b.zip]", true},
        {"no boundary", "multipart/form-data", part + "x\r\n--b0--\r\n", "", false},
        {"cut short", type, part + "zip", "[file|a;b.zip]", false},
        {"a header line without a colon", type, "--b0\r\nbroken\r\n\r\nx\r\n--b0--", "", false},
        {"text after a boundary on its line", type, "--b0 x\r\n\r\nx\r\n--b0--", "", false},
        {"stopped by its receiver", type, "--b0\r\nContent-Disposition: form-data; name=stop\r\n\r\nx\r\n--b0--", "[stop|]", false},
    };
    // clang-format on
    for (const auto& [name, content_type, body, handed_on, complete] : table) {
        for (size_t piece : {size_t(1), size_t(2), size_t(5), body.size()}) {
            SCOPED_TRACE(std::string(name) + ", pieces of " + std::to_string(piece));
            bool was_complete = false;
            EXPECT_EQ(read_in_pieces(content_type, body, piece, was_complete), handed_on);
            EXPECT_EQ(was_complete, complete);
        }
    }
}

}  // namespace
