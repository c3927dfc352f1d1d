#include "server/http_exchange.h"

#include <strings.h>

#include <algorithm>
#include <cctype>
#include <cstdlib>

namespace {

bool same_name(const std::string& a, const std::string& b) {
    return a.size() == b.size() && strncasecmp(a.data(), b.data(), a.size()) == 0;
}

int hex_digit(char c) {
    if (c >= '0' && c <= '9') return c - '0';
    c = char(std::tolower(static_cast<unsigned char>(c)));
    return c >= 'a' && c <= 'f' ? c - 'a' + 10 : -1;
}

}  // namespace

bool http_fields::has(const std::string& name) const {
    return std::any_of(fields_.begin(), fields_.end(),
                       [&](const auto& field) { return same_name(field.first, name); });
}

std::string http_fields::value(const std::string& name) const {
    for (const auto& field : fields_)
        if (same_name(field.first, name)) return field.second;
    return std::string();
}

void http_fields::add(std::string name, std::string value) {
    fields_.emplace_back(std::move(name), std::move(value));
}

void http_fields::set(const std::string& name, std::string value) {
    erase(name);
    add(name, std::move(value));
}

void http_fields::erase(const std::string& name) {
    fields_.erase(std::remove_if(fields_.begin(), fields_.end(),
                                 [&](const auto& field) { return same_name(field.first, name); }),
                  fields_.end());
}

std::uint64_t http_request::get_header_number(const std::string& name) const {
    const std::string text = headers.value(name);
    if (text.empty() || !std::isdigit(static_cast<unsigned char>(text[0]))) return 0;
    return std::strtoull(text.c_str(), nullptr, 10);
}

std::string http_request::get_param_value(const std::string& key) const {
    const auto found = params.find(key);
    return found == params.end() ? std::string() : found->second;
}

bool http_request::is_multipart_form_data() const {
    return headers.value("Content-Type").rfind("multipart/form-data", 0) == 0;
}

bool http_request::set_target(std::string sent) {
    target = std::move(sent);
    const std::size_t question = target.find('?');
    if (question != std::string::npos && target.find('?', question + 1) != std::string::npos)
        return false;
    path = percent_decoded(target.substr(0, question), false);
    const std::string query = question == std::string::npos ? "" : target.substr(question + 1);
    for (std::size_t begin = 0; begin < query.size();) {
        const std::size_t end = std::min(query.find('&', begin), query.size());
        const std::string pair = query.substr(begin, end - begin);
        const std::size_t equals = pair.find('=');
        if (!pair.empty())
            params.emplace(percent_decoded(pair.substr(0, equals), true),
                           equals == std::string::npos
                               ? std::string()
                               : percent_decoded(pair.substr(equals + 1), true));
        begin = end + 1;
    }
    return true;
}

void http_response::set_content(std::string content, const char* content_type) {
    body = std::move(content);
    reader = nullptr;
    set_header("Content-Type", content_type);
}

void http_response::set_content_provider(std::uint64_t length, const char* content_type,
                                         content_reader read_at) {
    body.clear();
    content_length = length;
    reader = std::move(read_at);
    set_header("Content-Type", content_type);
}

std::string percent_decoded(const std::string& text, bool plus_is_space) {
    std::string decoded;
    decoded.reserve(text.size());
    for (size_t i = 0; i < text.size(); ++i) {
        const int high = text[i] == '%' && i + 2 < text.size() ? hex_digit(text[i + 1]) : -1;
        const int low = high >= 0 ? hex_digit(text[i + 2]) : -1;
        if (low >= 0) {
            decoded += char(high * 16 + low);
            i += 2;
        } else {
            decoded += plus_is_space && text[i] == '+' ? ' ' : text[i];
        }
    }
    return decoded;
}
