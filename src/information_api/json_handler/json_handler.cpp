#include "json_handler.h"

#include <boost/property_tree/json_parser.hpp>
#include <boost/property_tree/ptree.hpp>
#include <sstream>

#include "answer_bounds.h"

namespace TarvoConsumerScanner {
namespace information_api {

json_handler::json_handler(information_sink* sink, int connection_id)
    : sink(sink), connection_id(connection_id) {}

json_handler::~json_handler() = default;

int json_handler::handle(QNetworkReply* reply) {
    parse_answer(reply->readAll());
    return 0;
}

int json_handler::handle_ready_read(QNetworkReply* /*reply*/) {
    return 0;
}

void json_handler::report(const response_info_t& info) {
    if (!sink) return;
    QVariant variant;
    variant.setValue(info);
    sink->on_response(connection_id, variant);
}

boost::property_tree::ptree parse_answer(const QByteArray& body) {
    if (!nesting_within(body, max_answer_nesting))
        throw boost::property_tree::json_parser_error("nested too deep", "", 0);
    std::stringstream stream(body.toStdString());
    boost::property_tree::ptree tree;
    boost::property_tree::read_json(stream, tree);
    return tree;
}

response_info_t initial_response(QNetworkReply* reply) {
    response_info_t info;
    info.ok = true;
    info.state = 0;
    info.net_error = reply->error();
    info.error_string = reply->errorString();
    return info;
}

}  // namespace information_api
}  // namespace TarvoConsumerScanner
