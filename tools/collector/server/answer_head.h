#pragma once

#include <QString>
#include <cstdint>
#include <string>
#include <utility>

#include "server/http_exchange.h"

// What the server makes of a route's answer before it goes out: a refusal
// without a body gets the JSON one, a refusal but 404 ends the connection
// (the rest of the request may still be on its way), and a GET's Range is
// served (206) or refused (416). Returns the bytes of the body that go out,
// [first, end).
std::pair<std::uint64_t, std::uint64_t> shape_answer(const http_request& req, http_response& res);

// The status line and header fields of res, with its Content-Length and
// whether the connection stays.
std::string answer_head(const http_response& res, std::uint64_t length, bool keep_alive,
                        unsigned version);

// Why the server itself refused a request with status, as its answer says.
QString refusal_reason(int status);
