#pragma once

#include <QList>
#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QNetworkRequest>
#include <QObject>
#include <QSslError>
#include <QString>
#include <QTimer>
#include <map>
#include <string>

#include "information_api/information_api.h"

namespace TarvoConsumerScanner {
namespace information_api {

class json_handler;
class sink_guard;

// Carries one network request from start to outcome. Created on the host's
// thread, which issues the request, then moved to the worker thread, where all
// of its slots, its time-out timer and its handler run.
class http_connector : public QObject {
    Q_OBJECT

public:
    http_connector(int connect_id, information_sink* sink, QObject* parent);
    ~http_connector() override;

    // POST of a JSON body to base + path [+ "/" + sub_path], each parameter
    // appended as "?key=value". flag is accepted and ignored.
    void send_request(const std::string& path, const QString& body,
                      const std::map<std::string, std::string>& params, int timeout_ms,
                      const std::string& sub_path, bool flag,
                      const std::map<std::string, std::string>& headers, const std::string& base);
    // GET of url; always returns 0.
    int send_get_request(QString url, int timeout_ms);
    // POST of file_path as a multipart form to base + url_suffix; 0 when sent,
    // -1 when the file cannot be opened.
    int send_multipart_request(const QString& url_suffix, const QString& file_path,
                               const std::map<QString, QString>& fields,
                               const std::map<QString, QString>& headers, int timeout_ms,
                               const QString& base);
    // GET of url into file_name_path, through a ".temp" file beside it.
    void downloadAppFile(QString url, QString file_name_path);

    int connect_id() const { return connect_id_; }
    int rt() const { return rt_; }

    // Called on the host's thread when the connection is released: from the
    // return on, no sink call starts, and one under way has ended.
    void close_sink();

signals:
    void finished();

public slots:
    void replyFinished(QNetworkReply* reply);
    void replyDownload(QNetworkReply* reply);
    void timeout_event();
    void http_ready_read();
    void update_data_read_progress(qint64 bytesReceived, qint64 bytestotal);
    void update_data_write_progress(qint64 bytesSent, qint64 bytestotal);
    void error(QNetworkReply::NetworkError code);
    void sslErrors(const QList<QSslError>& errors);

private slots:
    void slot_onDownLoadFileReadyRead();
    void slot_onDownLoadFileError(QNetworkReply::NetworkError networkError);
    void slot_onDownLoadFileSSLError(const QList<QSslError>& sslErrors);
    void slot_onDownLoadFileDownloadProgress(qint64 recive, qint64 total);
    void slot_onDownLoadFileFinished();

private:
    void report(const response_info_t& info);
    void report_network_error(QNetworkReply* reply);
    void connect_reply_signals(QNetworkReply* reply);
    QString temporary_download_path() const;
    // Refuses an answer that grows beyond limit bytes (announced or arrived):
    // the reply is aborted and reported as an unusable answer. The reply
    // holds little of it meanwhile, however fast it comes (answer_limit.cpp).
    void limit_answer(QNetworkReply* reply, qint64 limit);
    void refuse_answer(QNetworkReply* reply, qint64 limit);

    int rt_;
    QTimer* timer_;
    QNetworkAccessManager* manager_;
    QNetworkRequest request_;
    QNetworkReply* reply_;
    qint64 bytes_received_;
    double last_progress_time_;
    information_sink* sink_;
    int connect_id_;
    json_handler* handler_;
    QString file_name_path_;
    sink_guard* guard_;
    qint64 refused_answer_limit_;  // 0 while no answer was refused
};

// Wraps an outcome record for information_sink::on_response.
QVariant to_variant(const response_info_t& info);

// Asks for the answer as it is, uncompressed: the toolkit inflates a
// compressed answer whole on its own thread, before any bound on the answer
// applies, and a few megabytes of gzip inflate to gigabytes. A service that
// compresses all the same is read as sent, compressed bytes that parse as
// nothing.
void ask_for_uncompressed_answer(QNetworkRequest& request);

// Switches off peer verification and pins TLS 1.2 on request's own TLS
// configuration; verifies instead when verified TLS is on (tls_policy.h).
void relax_tls(QNetworkRequest& request);
// Same, on a fresh default configuration, but only when url starts with
// "https:" in any letter case (verified TLS applies whatever the url).
void relax_tls_for_https_url(QNetworkRequest& request, const QString& url);

}  // namespace information_api
}  // namespace TarvoConsumerScanner
