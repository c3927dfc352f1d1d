#include <glog/logging.h>

#include <QFile>
#include <QMetaEnum>
#include <QThread>
#include <QUrl>
#include <cstdio>

#include "connector_log.h"
#include "http_connector.h"

namespace TarvoConsumerScanner {
namespace information_api {

namespace {

// Bound on the data waiting in a download's reply. The network layer stops
// reading from the socket while the reply holds this much, so memory stays
// flat whatever the installer's size; the ready-read slot empties the reply
// into the temporary file.
constexpr qint64 kDownloadReadBuffer = 4 * 1024 * 1024;

// Data the reply may hold while the temporary file cannot be opened. Beyond
// it the download is given up as failed, rather than held in memory whole.
constexpr qint64 kUnwrittenDownloadLimit = 16 * 1024 * 1024;

const char* error_name(QNetworkReply::NetworkError code) {
    const char* name = QMetaEnum::fromType<QNetworkReply::NetworkError>().valueToKey(code);
    return name ? name : "UnknownError";
}

}  // namespace

QString http_connector::temporary_download_path() const {
    // Only ".exe" targets were meant, but the last four characters are cut
    // whatever they are: setup.zip and a.msi download through setup.temp and
    // a.temp just the same.
    return file_name_path_.left(file_name_path_.size() - 4) + ".temp";
}

void http_connector::downloadAppFile(QString url, QString file_name_path) {
    CONNECTOR_TRACE("downloadAppFile") << "downloadUrl  : " << url;
    CONNECTOR_TRACE("downloadAppFile") << "fileNamePath : " << file_name_path;
    file_name_path_ = file_name_path;
    const bool removed = QFile::remove(file_name_path_);
    CONNECTOR_TRACE("downloadAppFile") << "remove ret : " << removed;

    QNetworkRequest request(QUrl(url, QUrl::TolerantMode));
    relax_tls(request);
    request.setUrl(QUrl(url, QUrl::TolerantMode));
    reply_ = manager_->get(request);
    reply_->setReadBufferSize(kDownloadReadBuffer);

    // The end of a download is handled by the download slots alone.
    disconnect(manager_, SIGNAL(finished(QNetworkReply*)), this,
               SLOT(replyFinished(QNetworkReply*)));
    disconnect(reply_, SIGNAL(readyRead()), this, SLOT(slot_onDownLoadFileReadyRead()));
    disconnect(reply_, SIGNAL(finished()), this, SLOT(slot_onDownLoadFileFinished()));
    disconnect(reply_, SIGNAL(error(QNetworkReply::NetworkError)), this,
               SLOT(slot_onDownLoadFileError(QNetworkReply::NetworkError)));
    disconnect(reply_, SIGNAL(sslErrors(const QList<QSslError>&)), this,
               SLOT(slot_onDownLoadFileSSLError(const QList<QSslError>&)));
    disconnect(reply_, SIGNAL(downloadProgress(qint64, qint64)), this,
               SLOT(slot_onDownLoadFileDownloadProgress(qint64, qint64)));

    connect(reply_, SIGNAL(readyRead()), this, SLOT(slot_onDownLoadFileReadyRead()));
    LOG(INFO) << "downloadAppFile reply_ = " << LOG_POINTER(reply_);
    CONNECTOR_TRACE("downloadAppFile") << "downloadAppFile reply_ = " << LOG_POINTER(reply_);
    connect(reply_, SIGNAL(finished()), this, SLOT(slot_onDownLoadFileFinished()));
    connect(reply_, SIGNAL(error(QNetworkReply::NetworkError)), this,
            SLOT(slot_onDownLoadFileError(QNetworkReply::NetworkError)));
    connect(reply_, SIGNAL(sslErrors(const QList<QSslError>&)), this,
            SLOT(slot_onDownLoadFileSSLError(const QList<QSslError>&)));
    connect(reply_, SIGNAL(downloadProgress(qint64, qint64)), this,
            SLOT(slot_onDownLoadFileDownloadProgress(qint64, qint64)));
}

void http_connector::slot_onDownLoadFileReadyRead() {
    CONNECTOR_TRACE("slot_onDownLoadFileReadyRead");
    if (!reply_) {
        CONNECTOR_TRACE("slot_onDownLoadFileReadyRead") << " reply_ is NULL!";
        return;
    }
    const QString temp_path = temporary_download_path();
    CONNECTOR_TRACE("slot_onDownLoadFileReadyRead") << temp_path;
    // Appending, never truncating: a temporary file left by an earlier attempt
    // is continued. When the file cannot be opened the data stays in the reply
    // and goes out with the next chunk; the bound on the reply is lifted
    // meanwhile, since a full reply would bring no next chunk.
    QFile temp_file(temp_path);
    const bool opened = temp_file.open(QIODevice::Append);
    if (opened) temp_file.write(reply_->readAll());
    temp_file.flush();
    temp_file.close();
    if (!opened && reply_->bytesAvailable() > kUnwrittenDownloadLimit) {
        LOG(WARNING) << "download given up: " << temp_path.toStdString()
                     << " cannot be written and " << reply_->bytesAvailable()
                     << " bytes wait in memory";
        reply_->abort();  // ends as any failed download: logged, not reported
        return;
    }
    const qint64 bound = opened ? kDownloadReadBuffer : 0;
    if (reply_->readBufferSize() != bound) reply_->setReadBufferSize(bound);
}

void http_connector::slot_onDownLoadFileError(QNetworkReply::NetworkError networkError) {
    CONNECTOR_TRACE("slot_onDownLoadFileError") << "networkError=" << error_name(networkError);
}

void http_connector::slot_onDownLoadFileSSLError(const QList<QSslError>& sslErrors) {
    CONNECTOR_TRACE("slot_onDownLoadFileSSLError") << "sslErrors=" << sslErrors;
}

void http_connector::slot_onDownLoadFileDownloadProgress(qint64 recive, qint64 total) {
    CONNECTOR_TRACE("slot_onDownLoadFileDownloadProgress") "recive : " << recive;
    CONNECTOR_TRACE("slot_onDownLoadFileDownloadProgress") "total  : " << total;
    if (sink_) sink_->on_download_progress(recive, total);
}

void http_connector::slot_onDownLoadFileFinished() {
    CONNECTOR_TRACE("slot_onDownLoadFileFinished");
    if (!reply_) return;
    qDebug().noquote() << "reply_->error()=" << error_name(reply_->error());
    if (reply_->error() != QNetworkReply::NoError) {
        qDebug().noquote() << "reply->errorString()=" << reply_->errorString();
        return;
    }
    // The host expects this pause before the installer is moved into place.
    QThread::sleep(2);
    const QString temp_path = temporary_download_path();
    if (QFile::exists(temp_path)) {
        const bool renamed = QFile::rename(temp_path, file_name_path_);
        CONNECTOR_TRACE("slot_onDownLoadFileFinished")
            << "rename : " << reinterpret_cast<void*>(&::rename) << " ;rename ret : " << renamed;
    } else {
        CONNECTOR_TRACE("slot_onDownLoadFileFinished")
            << temp_path + " is not exists ! Download failed!";
    }
    if (sink_) sink_->on_download_finished(true, 0, 0);
}

void http_connector::replyDownload(QNetworkReply* reply) {
    if (timer_->isActive()) timer_->stop();
    if (!reply) return;
    LOG(INFO) << reply->errorString().toStdString();
    bool ok = false;
    int state = 7;
    const int net_error = reply->error();
    qDebug().noquote() << "reply->errorString()=" << reply->errorString();
    if (reply->error() == QNetworkReply::NoError) {
        QFile target(file_name_path_);
        if (target.open(QIODevice::WriteOnly)) {
            target.write(reply->readAll());
            target.close();
            state = 0;
            ok = true;
        } else {
            state = 8;
        }
    } else {
        rt_ = 7;
    }
    if (reply_) {
        reply_->deleteLater();
        reply_ = nullptr;
    }
    qDebug().noquote() << "rt_=" << rt_ << "net_errocode=" << net_error;
    if (sink_) sink_->on_download_finished(ok, state, net_error);
}

}  // namespace information_api
}  // namespace TarvoConsumerScanner
