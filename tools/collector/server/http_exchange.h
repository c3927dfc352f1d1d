#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

// Header fields in the order they came, looked up without regard to case.
class http_fields {
public:
    bool has(const std::string& name) const;
    // The first value, or an empty text.
    std::string value(const std::string& name) const;
    void add(std::string name, std::string value);
    // Replaces every field of that name.
    void set(const std::string& name, std::string value);
    void erase(const std::string& name);
    const std::vector<std::pair<std::string, std::string>>& all() const { return fields_; }

private:
    std::vector<std::pair<std::string, std::string>> fields_;
};

// A request as the routes see it, from the moment its head has been read.
struct http_request {
    std::string method;  // as sent: GET, POST, ...
    std::string target;  // as sent, with the query
    std::string path;    // percent-decoded, without the query
    unsigned version = 11;
    http_fields headers;
    std::multimap<std::string, std::string> params;  // the query's, decoded
    // The client's address: the connection's peer, or behind a trusted proxy
    // the address the proxy forwards.
    std::string remote_address;
    std::vector<std::string> matches;  // the route pattern's captures; [0] is the whole path

    bool has_header(const std::string& name) const { return headers.has(name); }
    std::string get_header_value(const std::string& name) const { return headers.value(name); }
    // The header as a number; 0 when absent or not a number.
    std::uint64_t get_header_number(const std::string& name) const;
    std::string get_param_value(const std::string& key) const;
    bool is_multipart_form_data() const;
    // Sets target, and path and params from it; false when it holds a second '?'.
    bool set_target(std::string sent);
};

// An answer: a status, header fields, and a body held whole or read piece by
// piece (files). Content-Length and Connection are the server's.
struct http_response {
    // Reads at most `most` bytes at offset into `into`; returns how many, 0 on failure.
    using content_reader =
        std::function<std::size_t(std::uint64_t offset, char* into, std::size_t most)>;

    int status = 200;
    http_fields headers;
    std::string body;
    std::uint64_t content_length = 0;  // of the body read by reader
    content_reader reader;
    // The connection ends with this answer: the rest of the request was not read.
    bool close_connection = false;

    bool has_header(const std::string& name) const { return headers.has(name); }
    std::string get_header_value(const std::string& name) const { return headers.value(name); }
    void set_header(const std::string& name, std::string value) {
        headers.set(name, std::move(value));
    }
    void set_content(std::string content, const char* content_type);
    void set_content_provider(std::uint64_t length, const char* content_type,
                              content_reader read_at);
    std::uint64_t body_length() const { return reader ? content_length : body.size(); }
};

// What a route does with the body of a request it accepted: takes it as it
// arrives (on a worker thread, a piece at a time, never two at once) and
// answers once it is whole. A receiver destroyed without finish() gives up:
// the request ran out of time or the service is stopping.
class body_receiver {
public:
    virtual ~body_receiver() = default;
    // False stops the reading; res then holds the answer.
    virtual bool take(const char* data, std::size_t length, http_response& res) = 0;
    // The body ended: read whole, or cut short or malformed (complete false).
    virtual void finish(const http_request& req, bool complete, http_response& res) = 0;
};

// "%41+b" -> "A b" when plus_is_space; invalid escapes are kept as they are.
std::string percent_decoded(const std::string& text, bool plus_is_space);
