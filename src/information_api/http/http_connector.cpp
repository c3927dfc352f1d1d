#include "http_connector.h"

#include <glog/logging.h>

#include <QRegExp>
#include <QSslConfiguration>
#include <QSslSocket>
#include <QUrl>
#include <ctime>

#include "connector_log.h"
#include "json_handler/answer_bounds.h"
#include "json_handler/json_handler.h"
#include "sink_guard.h"
#include "tls_policy.h"

namespace TarvoConsumerScanner {
namespace information_api {

namespace {

response_info_t failure(const QString& error_string, int state, int net_error) {
    response_info_t info;
    info.ok = false;
    info.error_string = error_string;
    info.state = state;
    info.net_error = net_error;
    return info;
}

double progress_clock() {
    return clock() / 1000.0;
}

// Queued slots of the connector carry these types.
void register_connector_meta_types() {
    static const bool registered = [] {
        qRegisterMetaType<QNetworkReply::NetworkError>("QNetworkReply::NetworkError");
        qRegisterMetaType<QList<QSslError>>("QList<QSslError>");
        qRegisterMetaType<QNetworkReply*>("QNetworkReply*");
        return true;
    }();
    (void)registered;
}

}  // namespace

QVariant to_variant(const response_info_t& info) {
    QVariant variant;
    variant.setValue(info);
    return variant;
}

void relax_tls(QNetworkRequest& request) {
    QSslConfiguration config = request.sslConfiguration();
    if (!apply_verified_tls(config)) {
        config.setPeerVerifyMode(QSslSocket::VerifyNone);
        config.setProtocol(QSsl::TlsV1_2);
    }
    request.setSslConfiguration(config);
}

void relax_tls_for_https_url(QNetworkRequest& request, const QString& url) {
    QSslConfiguration config;
    // A verifying build or run verifies whatever the address looks like.
    if (apply_verified_tls(config)) return request.setSslConfiguration(config);
    QRegExp https_scheme("^[Hh][Tt]{2}[Pp][Ss]:", Qt::CaseSensitive, QRegExp::RegExp);
    if (https_scheme.indexIn(url, 0) < 0) return;
    config.setPeerVerifyMode(QSslSocket::VerifyNone);
    config.setProtocol(QSsl::TlsV1_2);
    request.setSslConfiguration(config);
}

http_connector::http_connector(int connect_id, information_sink* sink, QObject* parent)
    : QObject(parent),
      rt_(0),
      timer_(new QTimer(this)),
      manager_(new QNetworkAccessManager(this)),
      request_(QUrl()),
      reply_(nullptr),
      bytes_received_(0),
      last_progress_time_(0),
      sink_(nullptr),
      connect_id_(connect_id),
      handler_(nullptr),
      guard_(sink ? new sink_guard(sink) : nullptr),
      refused_answer_limit_(0) {
    // Every report goes through the guard, which the host's release closes.
    sink_ = guard_;
    register_connector_meta_types();
    connect(manager_, SIGNAL(finished(QNetworkReply*)), this, SLOT(replyFinished(QNetworkReply*)));
    connect(timer_, SIGNAL(timeout()), this, SLOT(timeout_event()));
}

http_connector::~http_connector() {
    if (timer_->isActive()) timer_->stop();
    delete handler_;
    handler_ = nullptr;
    if (reply_) {
        reply_->deleteLater();
        reply_ = nullptr;
    }
    if (manager_) {
        manager_->deleteLater();
        manager_ = nullptr;
    }
    delete guard_;
}

void http_connector::close_sink() {
    if (guard_) guard_->close();
}

void http_connector::send_request(const std::string& path, const QString& body,
                                  const std::map<std::string, std::string>& params, int timeout_ms,
                                  const std::string& sub_path, bool /*flag*/,
                                  const std::map<std::string, std::string>& headers,
                                  const std::string& base) {
    const std::string joined = base + path;
    QString url = QString::fromLatin1(joined.c_str());
    if (!sub_path.empty()) url += "/" + QString::fromStdString(sub_path);
    // Every parameter gets a "?" of its own; the service expects exactly that.
    for (const auto& param : params)
        url +=
            "?" + QString::fromStdString(param.first) + "=" + QString::fromStdString(param.second);
    CONNECTOR_TRACE("send_request") << "url : " << url;

    request_.setUrl(QUrl(url, QUrl::TolerantMode));
    relax_tls_for_https_url(request_, url);
    request_.setHeader(QNetworkRequest::ContentTypeHeader, "application/json;charset=utf-8");
    ask_for_uncompressed_answer(request_);
    for (const auto& header : headers)
        request_.setRawHeader(QByteArray::fromStdString(header.first),
                              QByteArray::fromStdString(header.second));
    timer_->start(timeout_ms);
    handler_ = new upload_handler(sink_, connect_id_);
    reply_ = manager_->post(request_, body.toUtf8());
    limit_answer(reply_, max_upload_answer_size);
    connect_reply_signals(reply_);
    bytes_received_ = 0;
    last_progress_time_ = progress_clock();
}

int http_connector::send_get_request(QString url, int timeout_ms) {
    QNetworkRequest request(QUrl(url, QUrl::TolerantMode));
    relax_tls(request);
    ask_for_uncompressed_answer(request);
    handler_ = new get_url_json_file_handler(sink_, connect_id_);
    request.setUrl(QUrl(url, QUrl::TolerantMode));
    reply_ = manager_->get(request);
    limit_answer(reply_, max_descriptor_answer_size);  // a get is under way already
    LOG(INFO) << "manager->post reply_=" << LOG_POINTER(reply_);
    connect_reply_signals(reply_);
    if (timer_ && !timer_->isActive()) timer_->start(timeout_ms);
    return 0;
}

void http_connector::connect_reply_signals(QNetworkReply* reply) {
    connect(reply, SIGNAL(readyRead()), this, SLOT(http_ready_read()));
    connect(reply, SIGNAL(error(QNetworkReply::NetworkError)), this,
            SLOT(error(QNetworkReply::NetworkError)));
    connect(reply, SIGNAL(sslErrors(const QList<QSslError>&)), this,
            SLOT(sslErrors(const QList<QSslError>&)));
    connect(reply, SIGNAL(downloadProgress(qint64, qint64)), this,
            SLOT(update_data_read_progress(qint64, qint64)));
}

void http_connector::report(const response_info_t& info) {
    if (sink_) sink_->on_response(connect_id_, to_variant(info));
}

void http_connector::report_network_error(QNetworkReply* reply) {
    rt_ = 7;
    report(failure(reply->errorString(), 7, reply->error()));
}

void http_connector::replyFinished(QNetworkReply* reply) {
    if (timer_->isActive()) timer_->stop();
    if (!reply) return;
    LOG(INFO) << reply->errorString().toStdString();
    if (refused_answer_limit_) {
        rt_ = 10;
        report(failure(oversized_answer_text(refused_answer_limit_), 10, -2));
    } else if (reply->error() == QNetworkReply::NoError) {
        // The size watch read the answer as it came, keeping it in the reply.
        if (reply->isTransactionStarted()) reply->rollbackTransaction();
        if (handler_) rt_ = handler_->handle(reply);
    } else {
        report_network_error(reply);
    }
    if (reply_) {
        reply_->deleteLater();
        reply_ = nullptr;
    }
}

void http_connector::http_ready_read() {
    if (timer_->isActive()) timer_->stop();
    if (!reply_) return;
    LOG(INFO) << reply_->errorString().toStdString();
    if (reply_->error() == QNetworkReply::NoError) {
        if (handler_) rt_ = handler_->handle_ready_read(reply_);
    } else {
        LOG(INFO) << reply_->errorString().toStdString();
        report_network_error(reply_);
    }
}

void http_connector::error(QNetworkReply::NetworkError code) {
    LOG(INFO) << "error" << static_cast<int>(code);
    report(failure(QString(), 7, code));
}

void http_connector::sslErrors(const QList<QSslError>& errors) {
    for (const QSslError& e : errors) LOG(INFO) << "error" << e.errorString().toStdString();
}

void http_connector::timeout_event() {
    rt_ = 6;
    const response_info_t info = failure("timeout", 6, -1);
    LOG(INFO) << "net connect time out";
    report(info);
}

void http_connector::update_data_read_progress(qint64 bytesReceived, qint64 /*bytestotal*/) {
    if (timer_->isActive()) timer_->stop();
    bytes_received_ = bytesReceived;
    last_progress_time_ = progress_clock();
}

void http_connector::update_data_write_progress(qint64 /*bytesSent*/, qint64 /*bytestotal*/) {
    if (timer_->isActive()) timer_->stop();
}

}  // namespace information_api
}  // namespace TarvoConsumerScanner
