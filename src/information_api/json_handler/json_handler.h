#pragma once

#include <QNetworkReply>
#include <boost/property_tree/ptree.hpp>

#include "information_api/information_api.h"

namespace TarvoConsumerScanner {
namespace information_api {

// Reads the service's answer to one finished request and reports the outcome
// to the host's sink. One subclass per kind of request; owned by the connector.
class json_handler {
public:
    json_handler(information_sink* sink, int connection_id);
    virtual ~json_handler();
    virtual int handle(QNetworkReply* reply);
    // Called for every readyRead while data arrives; the answer is read only
    // once the reply has finished.
    virtual int handle_ready_read(QNetworkReply* reply);

protected:
    void report(const response_info_t& info);

    information_sink* sink;
    int connection_id;
};

// Information upload: accepted when "status" is exactly "success"; otherwise
// the service's "result" message becomes the error text.
class upload_handler : public json_handler {
public:
    using json_handler::json_handler;
    int handle(QNetworkReply* reply) override;
};

// File upload: on "success" the stored file id ("result.dfs_id") goes into
// the outcome's result.
class upload_file_handler : public json_handler {
public:
    using json_handler::json_handler;
    int handle(QNetworkReply* reply) override;
};

// Descriptor query: any non-empty JSON document is handed to the host as the
// outcome's content.
class get_url_json_file_handler : public json_handler {
public:
    using json_handler::json_handler;
    int handle(QNetworkReply* reply) override;
};

// The service's answer as a property tree. Throws, like the parser, on a text
// that is not JSON, and on one nested deeper than any answer is: the parser
// recurses once per level and would exhaust the worker thread's stack.
boost::property_tree::ptree parse_answer(const QByteArray& body);

// The record every handler starts from: success, with the reply's error code
// and text.
response_info_t initial_response(QNetworkReply* reply);

}  // namespace information_api
}  // namespace TarvoConsumerScanner
