#include "json_outline.h"

#include <string>
#include <unordered_map>
#include <vector>

namespace TarvoConsumerScanner {
namespace information_api {

namespace {

// One open array or object. For an object: whether each name seen so far
// holds a container, and the name whose value comes next.
struct open_value {
    explicit open_value(bool is_object) : object(is_object) {}
    bool object;
    bool expecting_name = true;
    std::string name;
    std::unordered_map<std::string, bool> holds_container;
};

void append_utf8(std::string& out, unsigned code) {
    if (code < 0x80) {
        out += char(code);
    } else if (code < 0x800) {
        out += char(0xC0 | (code >> 6));
        out += char(0x80 | (code & 0x3F));
    } else if (code < 0x10000) {
        out += char(0xE0 | (code >> 12));
        out += char(0x80 | ((code >> 6) & 0x3F));
        out += char(0x80 | (code & 0x3F));
    } else {
        out += char(0xF0 | (code >> 18));
        out += char(0x80 | ((code >> 12) & 0x3F));
        out += char(0x80 | ((code >> 6) & 0x3F));
        out += char(0x80 | (code & 0x3F));
    }
}

class scanner {
public:
    scanner(const QByteArray& json, int max_depth)
        : at_(json.constData()), end_(at_ + json.size()), max_depth_(max_depth) {}

    json_outline run() {
        json_outline outline;
        while (at_ < end_ && !outline.too_deep && !outline.replaces_a_container) {
            const char c = *at_++;
            if (c == '{' || c == '[') {
                outline.replaces_a_container = value_begins(true);
                open_.emplace_back(c == '{');
                outline.too_deep = int(open_.size()) > max_depth_;
            } else if ((c == '}' || c == ']') && !open_.empty()) {
                open_.pop_back();
            } else if (c == ',' && !open_.empty()) {
                open_.back().expecting_name = true;
            } else if (c == '"') {
                std::string text = string_body();
                if (!open_.empty() && open_.back().object && open_.back().expecting_name) {
                    open_.back().name = std::move(text);
                    open_.back().expecting_name = false;
                } else {
                    outline.replaces_a_container = value_begins(false);
                }
            } else if (c == '-' || (c >= '0' && c <= '9') || c == 't' || c == 'f' || c == 'n') {
                outline.replaces_a_container = value_begins(false);
                while (at_ < end_ && std::string(",]} \t\r\n").find(*at_) == std::string::npos)
                    ++at_;
            }
        }
        return outline;
    }

private:
    // Records that a value starts in the open object under its name; true
    // when it replaces a container held under that name.
    bool value_begins(bool container) {
        if (open_.empty() || !open_.back().object) return false;
        auto [entry, added] =
            open_.back().holds_container.try_emplace(open_.back().name, container);
        const bool replaces = !added && entry->second;
        entry->second = container;
        return replaces;
    }

    // The text of a string whose opening quote was just read, escapes decoded.
    std::string string_body() {
        std::string text;
        while (at_ < end_ && *at_ != '"') {
            if (*at_ != '\\') {
                text += *at_++;
                continue;
            }
            if (++at_ == end_) break;
            const char escape = *at_++;
            switch (escape) {
                case 'b':
                    text += '\b';
                    break;
                case 'f':
                    text += '\f';
                    break;
                case 'n':
                    text += '\n';
                    break;
                case 'r':
                    text += '\r';
                    break;
                case 't':
                    text += '\t';
                    break;
                case 'u':
                    append_utf8(text, code_point());
                    break;
                default:
                    text += escape;
            }
        }
        if (at_ < end_) ++at_;  // the closing quote
        return text;
    }

    // The code point of a \u escape whose "\u" was just read; a high
    // surrogate takes the low one that follows it, and leaves any other
    // escape to be read as one of its own, as Qt's parser does.
    unsigned code_point() {
        unsigned code = hex4();
        if (code >= 0xD800 && code < 0xDC00 && end_ - at_ >= 6 && at_[0] == '\\' && at_[1] == 'u') {
            const char* const next = at_;
            at_ += 2;
            const unsigned low = hex4();
            if (low >= 0xDC00 && low < 0xE000)
                code = 0x10000 + ((code - 0xD800) << 10) + (low - 0xDC00);
            else
                at_ = next;
        }
        return code;
    }

    unsigned hex4() {
        unsigned value = 0;
        for (int i = 0; i < 4 && at_ < end_; ++i, ++at_) {
            const char c = *at_;
            const int digit = c >= '0' && c <= '9'   ? c - '0'
                              : c >= 'a' && c <= 'f' ? c - 'a' + 10
                              : c >= 'A' && c <= 'F' ? c - 'A' + 10
                                                     : -1;
            if (digit < 0) break;
            value = value * 16 + unsigned(digit);
        }
        return value;
    }

    const char* at_;
    const char* end_;
    int max_depth_;
    std::vector<open_value> open_;
};

}  // namespace

json_outline outline_of(const QByteArray& json, int max_depth) {
    return scanner(json, max_depth).run();
}

}  // namespace information_api
}  // namespace TarvoConsumerScanner
