#include <glog/logging.h>

#include "http_connector.h"
#include "json_handler/answer_bounds.h"

namespace TarvoConsumerScanner {
namespace information_api {

namespace {

// What an answer's reply may hold that the worker thread has not read yet.
// The network layer stops reading from the socket while the reply holds this
// much, so a service that sends faster than the worker thread gets to the
// data fills no memory with it.
constexpr qint64 kAnswerReadBuffer = 64 * 1024;

}  // namespace

void ask_for_uncompressed_answer(QNetworkRequest& request) {
    request.setRawHeader("Accept-Encoding", "identity");
}

void http_connector::limit_answer(QNetworkReply* reply, qint64 limit) {
    // The network layer takes the bound only once the request has started: a
    // get starts within manager_->get(), a post from the reply's event loop,
    // where the bound is handed over again right after the start (the posted
    // call moves to the worker thread with the reply).
    reply->setReadBufferSize(kAnswerReadBuffer);
    QMetaObject::invokeMethod(
        reply, [reply] { reply->setReadBufferSize(kAnswerReadBuffer); }, Qt::QueuedConnection);
    // An announced length is refused with the headers, before the body comes.
    connect(reply, &QNetworkReply::metaDataChanged, this, [this, reply, limit] {
        const QVariant length = reply->header(QNetworkRequest::ContentLengthHeader);
        if (length.isValid() && length.toLongLong() > limit) refuse_answer(reply, limit);
    });
    // Every arrival is read at once, so that the network layer goes on reading
    // and the count sees each byte, within a transaction that keeps the answer
    // in the reply for the handler (replyFinished rolls it back).
    connect(reply, &QNetworkReply::readyRead, this,
            [this, reply, limit, arrived = qint64(0)]() mutable {
                if (refused_answer_limit_) return;
                if (!reply->isTransactionStarted()) reply->startTransaction();
                arrived += reply->read(reply->bytesAvailable()).size();
                if (arrived > limit) refuse_answer(reply, limit);
            });
}

void http_connector::refuse_answer(QNetworkReply* reply, qint64 limit) {
    if (refused_answer_limit_) return;
    refused_answer_limit_ = limit;
    LOG(WARNING) << "error: " << oversized_answer_text(limit).toStdString();
    // The abort is ours: the cancellation is not reported as a network error,
    // the finished reply reports the refusal once.
    disconnect(reply, SIGNAL(error(QNetworkReply::NetworkError)), this,
               SLOT(error(QNetworkReply::NetworkError)));
    disconnect(reply, SIGNAL(readyRead()), this, SLOT(http_ready_read()));
    reply->abort();
}

}  // namespace information_api
}  // namespace TarvoConsumerScanner
