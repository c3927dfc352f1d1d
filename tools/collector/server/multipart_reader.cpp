#include "server/multipart_reader.h"

#include <strings.h>

#include <algorithm>

namespace {

// A part's header lines, together; a boundary's line.
const std::size_t header_limit = 8 * 1024;
const std::size_t boundary_limit = 200;

std::string trimmed(const std::string& text) {
    const std::size_t first = text.find_first_not_of(" \t");
    if (first == std::string::npos) return std::string();
    return text.substr(first, text.find_last_not_of(" \t") - first + 1);
}

}  // namespace

std::string header_parameter(const std::string& header_value, const std::string& name) {
    const std::string& v = header_value;
    for (std::size_t i = v.find(';'); i != std::string::npos; i = v.find(';', i)) {
        const std::size_t equals = v.find_first_of("=;", ++i);
        if (equals == std::string::npos || v[equals] == ';') {
            i = equals;
            continue;
        }
        const std::string key = trimmed(v.substr(i, equals - i));
        std::string value;
        i = v.find_first_not_of(" \t", equals + 1);
        if (i != std::string::npos && v[i] == '"') {
            for (++i; i < v.size() && v[i] != '"'; ++i)
                value += v[i] == '\\' && i + 1 < v.size() ? v[++i] : v[i];
        } else if (i != std::string::npos) {
            const std::size_t end = std::min(v.find(';', i), v.size());
            value = trimmed(v.substr(i, end - i));
            i = end;
        }
        if (key.size() == name.size() && strncasecmp(key.data(), name.data(), key.size()) == 0)
            return value;
    }
    return std::string();
}

multipart_reader::multipart_reader(const std::string& content_type, part_begins begins,
                                   part_data data)
    : begins_(std::move(begins)), data_(std::move(data)) {
    const std::string boundary = header_parameter(content_type, "boundary");
    delimiter_ = "\r\n--" + boundary;
    state_ =
        boundary.empty() || boundary.size() > boundary_limit ? state::failed : state::delimiter;
    pending_ = "\r\n";  // the first boundary may open the body
}

bool multipart_reader::feed(const char* data, std::size_t size) {
    if (state_ == state::done || state_ == state::failed) return state_ == state::done;
    pending_.append(data, size);
    while (step()) {
    }
    return state_ != state::failed;
}

// Takes what pending_ holds as far as the current state can; true to go on.
bool multipart_reader::step() {
    const std::size_t line_end = pending_.find("\r\n");
    switch (state_) {
        case state::delimiter:
        case state::content: {
            const std::size_t at = pending_.find(delimiter_);
            // Short of a delimiter, its first bytes may be what the end holds.
            const std::size_t ready =
                at != std::string::npos
                    ? at
                    : pending_.size() - std::min(pending_.size(), delimiter_.size() - 1);
            if (state_ == state::content && ready > 0 && !data_(pending_.data(), ready)) {
                state_ = state::failed;
                return false;
            }
            pending_.erase(0, at != std::string::npos ? at + delimiter_.size() : ready);
            if (at == std::string::npos) return false;
            state_ = state::after_delimiter;
            return true;
        }
        case state::after_delimiter:
            if (pending_.compare(0, 2, "--") == 0) {
                state_ = state::done;
                pending_.clear();
                return false;
            }
            if (line_end == std::string::npos) {
                if (pending_.size() > boundary_limit) state_ = state::failed;
                return false;
            }
            // Only blanks may follow a boundary on its line.
            if (pending_.find_first_not_of(" \t") < line_end) {
                state_ = state::failed;
                return false;
            }
            pending_.erase(0, line_end + 2);
            part_ = part();
            header_size_ = 0;
            state_ = state::header;
            return true;
        case state::header: {
            const std::size_t taken =
                line_end == std::string::npos ? pending_.size() : line_end + 2;
            if (header_size_ + taken > header_limit) {
                state_ = state::failed;
                return false;
            }
            if (line_end == std::string::npos) return false;
            header_size_ += taken;
            const std::string line = pending_.substr(0, line_end);
            pending_.erase(0, taken);
            if (!line.empty()) {
                if (!header_line(line)) state_ = state::failed;
                return state_ != state::failed;
            }
            state_ = begins_(part_) ? state::content : state::failed;
            return state_ != state::failed;
        }
        default:
            return false;
    }
}

bool multipart_reader::header_line(const std::string& line) {
    const std::size_t colon = line.find(':');
    if (colon == std::string::npos || colon == 0) return false;
    const std::string name = trimmed(line.substr(0, colon));
    const std::string value = trimmed(line.substr(colon + 1));
    if (strcasecmp(name.c_str(), "Content-Disposition") == 0) {
        part_.name = header_parameter(value, "name");
        part_.filename = header_parameter(value, "filename");
    } else if (strcasecmp(name.c_str(), "Content-Type") == 0) {
        part_.content_type = value;
    }
    return true;
}
