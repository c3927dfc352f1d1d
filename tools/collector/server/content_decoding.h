#pragma once

#include <memory>
#include <string>

#include "server/http_exchange.h"

// The receiver of a body sent with the Content-Encoding given: receiver
// itself when there is none, one that inflates gzip or deflate into it piece
// by piece (so that its limits count what the body unpacks to), or none for
// another encoding, with res answering 415.
std::unique_ptr<body_receiver> decoding(std::unique_ptr<body_receiver> receiver,
                                        const std::string& content_encoding, http_response& res);
