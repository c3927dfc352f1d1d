#pragma once

#include <cstddef>
#include <functional>
#include <string>

// Reads a multipart/form-data body as it arrives, in pieces of any size,
// without holding more of it than a part's header and a boundary's length:
// each part's header is handed on when complete, its content as it comes.
// Text before the first boundary and after the last is passed over.
class multipart_reader {
public:
    struct part {
        std::string name;          // of Content-Disposition
        std::string filename;      // of Content-Disposition, as sent
        std::string content_type;  // empty when not given
    };
    // Each returns false to stop the reading.
    using part_begins = std::function<bool(const part&)>;
    using part_data = std::function<bool(const char*, std::size_t)>;

    // The boundary comes from the request's Content-Type.
    multipart_reader(const std::string& content_type, part_begins begins, part_data data);

    // False once the body is malformed or a callback stopped it.
    bool feed(const char* data, std::size_t size);
    // Whether the body ended with its closing boundary, nothing malformed before.
    bool complete() const { return state_ == state::done; }

private:
    enum class state { delimiter, after_delimiter, header, content, done, failed };
    bool step();
    bool header_line(const std::string& line);

    std::string delimiter_;  // CRLF "--" boundary
    part_begins begins_;
    part_data data_;
    state state_;
    std::string pending_;  // what has not been handed on yet
    std::size_t header_size_ = 0;
    part part_;
};

// The value of a parameter of a header value such as `form-data; name="a"`
// (the name in any case, the value unquoted); empty when absent.
std::string header_parameter(const std::string& header_value, const std::string& name);
