#pragma once

#include <glog/logging.h>

#include <QNetworkReply>
#include <QNetworkRequest>
#include <QtGlobal>
#include <cstdio>
#include <cstring>

// The library logs every answer it reads; a fuzzer reads millions. Qt's own
// fatal and critical messages still show: they explain a crash.
inline void fuzz_quiet() {
    FLAGS_minloglevel = google::GLOG_FATAL;
    qInstallMessageHandler([](QtMsgType type, const QMessageLogContext&, const QString& message) {
        if (type == QtFatalMsg || type == QtCriticalMsg)
            std::fprintf(stderr, "%s\n", qPrintable(message));
    });
}

// A finished reply without error that serves a fixed body, as a handler
// receives it from the connector.
class fake_reply : public QNetworkReply {
public:
    explicit fake_reply(const QByteArray& body) : body_(body) {
        setAttribute(QNetworkRequest::HttpStatusCodeAttribute, 200);
        setError(NoError, QString());
        open(ReadOnly | Unbuffered);
        setFinished(true);
    }
    void abort() override {}
    qint64 bytesAvailable() const override { return body_.size() - offset_; }
    bool isSequential() const override { return true; }

protected:
    qint64 readData(char* data, qint64 max_size) override {
        const qint64 n = qMin(max_size, qint64(body_.size()) - offset_);
        if (n <= 0) return -1;
        std::memcpy(data, body_.constData() + offset_, size_t(n));
        offset_ += n;
        return n;
    }

private:
    QByteArray body_;
    qint64 offset_ = 0;
};
