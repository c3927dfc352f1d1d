#include <glog/logging.h>

#include <QDebug>
#include <boost/property_tree/ptree.hpp>

#include "answer_bounds.h"
#include "json_handler.h"

namespace TarvoConsumerScanner {
namespace information_api {

namespace pt = boost::property_tree;

namespace {

void reject(response_info_t& info, QNetworkReply* reply) {
    info.ok = false;
    LOG(WARNING) << "error: failed response " << reply->errorString().toStdString();
    info.state = 10;
    info.net_error = -2;
}

}  // namespace

int upload_handler::handle(QNetworkReply* reply) {
    response_info_t info = initial_response(reply);
    const QByteArray body = reply->readAll();
    qDebug() << quoted_answer_bytes(body);
    LOG(INFO) << "upload_handler:   response= " << quoted_answer(body);

    std::string status;
    std::string result_text;
    try {
        const pt::ptree tree = parse_answer(body);
        status = tree.get<std::string>("status", "failed");
        result_text = tree.get<std::string>("result", "");
    } catch (...) {
        LOG(WARNING) << "error: json parse exception: " << quoted_answer(body);
        status = "failed";
    }
    if (status != "success") {
        reject(info, reply);
        // The service's own message says more than the transport's text.
        if (!result_text.empty()) info.error_string = QString::fromStdString(result_text);
    }
    report(info);
    return 0;
}

int upload_file_handler::handle(QNetworkReply* reply) {
    response_info_t info = initial_response(reply);
    const QByteArray body = reply->readAll();
    LOG(INFO) << "upload_file_handler" << quoted_answer(body);
    qDebug() << quoted_answer_bytes(body);

    std::string status;
    std::string dfs_id;
    try {
        const pt::ptree tree = parse_answer(body);
        status = tree.get<std::string>("status", "failed");
        LOG(INFO) << "err_info=" << status;
        if (status == "success") {
            dfs_id = tree.get<std::string>("result.dfs_id", "");
            LOG(INFO) << "dfs_id=" << dfs_id;
            info.result = QString::fromStdString(dfs_id);
        }
    } catch (...) {
        LOG(WARNING) << "error: json parse exception: " << quoted_answer(body);
        status = "failed";
    }
    if (status != "success") {
        reject(info, reply);
        if (!dfs_id.empty()) info.error_string = QString::fromStdString(dfs_id);
    }
    report(info);
    return 0;
}

}  // namespace information_api
}  // namespace TarvoConsumerScanner
