#include "server/answer_head.h"

#include <strings.h>

#include <algorithm>
#include <ostream>  // before Beast's status: Boost 1.74's string_view needs it

#include <boost/beast/http/status.hpp>

#include "server/json_answer.h"

namespace {

// The one range of a Range header, as [first, end) of length; false when it
// names none that can be served. Several ranges are answered with everything.
bool single_range(const std::string& header, std::uint64_t length, std::uint64_t& first,
                  std::uint64_t& end) {
    first = 0;
    end = length;
    if (header.rfind("bytes=", 0) != 0) return false;
    const std::string spec = header.substr(6);
    if (spec.find(',') != std::string::npos) return true;
    const std::size_t dash = spec.find('-');
    const auto number = [](const std::string& text, std::uint64_t& out) {
        if (text.empty() || text.size() > 18 ||
            text.find_first_not_of("0123456789") != std::string::npos)
            return false;
        out = std::stoull(text);
        return true;
    };
    std::uint64_t a = 0, b = 0;
    const bool has_a = dash != std::string::npos && number(spec.substr(0, dash), a);
    const bool has_b = dash != std::string::npos && number(spec.substr(dash + 1), b);
    if (has_a && (has_b || dash + 1 == spec.size())) {
        first = a;
        end = has_b ? std::min(b + 1, length) : length;
    } else if (dash == 0 && has_b) {
        first = length - std::min(b, length);
    } else {
        return false;
    }
    return first < end;
}

}  // namespace

QString refusal_reason(int status) {
    switch (status) {
        case 400:
            return "malformed request";
        case 404:
            return "not found";
        case 405:
            return "method not allowed";
        case 408:
            return "request took too long";
        case 413:
            return "request body too large";
        case 414:
            return "request line too long";
        case 416:
            return "bad range";
        case 431:
            return "request header too large";
        case 503:
            return "the service is stopping";
        default:
            return QString("HTTP status %1").arg(status);
    }
}

std::pair<std::uint64_t, std::uint64_t> shape_answer(const http_request& req, http_response& res) {
    if (res.status >= 400 && res.body.empty() && !res.reader)
        answer_failed(res, refusal_reason(res.status), res.status);
    if (res.status >= 400 && res.status != 404) res.close_connection = true;
    const std::uint64_t length = res.body_length();
    std::uint64_t first = 0, end = length;
    const bool ranged = req.method == "GET" || req.method == "HEAD";
    if (res.status != 200 || !ranged || !req.has_header("Range")) return {first, end};
    if (!single_range(req.get_header_value("Range"), length, first, end)) {
        res = http_response();
        answer_failed(res, refusal_reason(416), 416);
        res.close_connection = true;
        return {0, res.body_length()};
    }
    if (end - first != length) {
        res.status = 206;
        res.set_header("Content-Range", "bytes " + std::to_string(first) + "-" +
                                            std::to_string(end - 1) + "/" + std::to_string(length));
    }
    return {first, end};
}

std::string answer_head(const http_response& res, std::uint64_t length, bool keep_alive,
                        unsigned version) {
    namespace http = boost::beast::http;
    std::string head =
        "HTTP/1.1 " + std::to_string(res.status) + " " +
        std::string(http::obsolete_reason(http::int_to_status(unsigned(res.status)))) + "\r\n";
    for (const auto& [name, value] : res.headers.all())
        if (strcasecmp(name.c_str(), "Content-Length") != 0 &&
            strcasecmp(name.c_str(), "Connection") != 0)
            head += name + ": " + value + "\r\n";
    head += "Content-Length: " + std::to_string(length) + "\r\n";
    if (!keep_alive)
        head += "Connection: close\r\n";
    else if (version == 10)
        head += "Connection: keep-alive\r\n";
    return head + "\r\n";
}
