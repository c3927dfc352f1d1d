#include <glog/logging.h>

#include <QDebug>

#include "http/http_connector.h"
#include "information_api/information_api.h"
#include "library_state.h"

namespace TarvoConsumerScanner {
namespace information_api {

namespace {

// Creates the connector of a new request and enters it under connection_id.
http_connector* open_connection(int connection_id, information_sink* sink) {
    auto* connector = new http_connector(connection_id, sink, nullptr);
    state().connections.insert(connection_id, connector);
    return connector;
}

// Hands the connector, with the request it has just issued, to the worker
// thread, where its replies, timer and handler run from now on.
void hand_to_worker(http_connector* connector) {
    if (state().worker) connector->moveToThread(state().worker);
}

}  // namespace

int upload_information(const QString& url, const QString& body, const QString& app_id,
                       const QString& type, information_sink* sink, int connection_id,
                       int timeout) {
    http_connector* connector = open_connection(connection_id, sink);
    const std::map<std::string, std::string> params{{"type", type.toStdString()}};
    const std::map<std::string, std::string> headers{{"X-Auth-AppID", app_id.toStdString()}};
    connector->send_request("", body, params, timeout, "", true, headers, url.toStdString());
    hand_to_worker(connector);
    return 0;
}

int upload_file(const QString& url, const QString& file_path, const QString& app_id,
                const QString& /*extra*/, information_sink* sink, int connection_id, int timeout) {
    http_connector* connector = open_connection(connection_id, sink);
    const std::map<QString, QString> fields;
    const std::map<QString, QString> headers{{"X-Auth-AppID", app_id}};
    const QString url_suffix = "?category=feedback&bucket=pub";
    qDebug().noquote() << "TarvoConsumerScanner::information_api::upload_file"
                       << "url_post : " << url_suffix;
    const int ret =
        connector->send_multipart_request(url_suffix, file_path, fields, headers, timeout, url);
    qDebug().noquote() << "TarvoConsumerScanner::information_api::upload_file"
                       << "upload_file ret : " << ret;
    LOG(INFO) << "send_multipart_request ret=" << ret;
    hand_to_worker(connector);
    return 0;
}

int get_url_json_file(const QString& base_url, const QString& software, information_sink* sink,
                      int connection_id, int timeout) {
    http_connector* connector = open_connection(connection_id, sink);
    const QString full_url = base_url + QString("/software/%1/interface.json").arg(software);
    LOG(INFO) << " get_url_json_file full_url=" << full_url.toStdString();
    connector->send_get_request(full_url, timeout);
    hand_to_worker(connector);
    return 0;
}

int downLoadApp(int connection_id, information_sink* sink, const QString& url,
                const QString& file_path) {
    http_connector* connector = open_connection(connection_id, sink);
    connector->downloadAppFile(url, file_path);
    hand_to_worker(connector);
    return 0;
}

}  // namespace information_api
}  // namespace TarvoConsumerScanner
