#pragma once

#include <QNetworkReply>
#include <QNetworkRequest>

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
    qint64 bytesAvailable() const override {
        return body_.size() - offset_ + QIODevice::bytesAvailable();
    }
    bool isSequential() const override { return true; }

protected:
    qint64 readData(char* data, qint64 max_size) override {
        const qint64 n = qMin(max_size, qint64(body_.size()) - offset_);
        if (n <= 0) return -1;
        memcpy(data, body_.constData() + offset_, size_t(n));
        offset_ += n;
        return n;
    }

private:
    QByteArray body_;
    qint64 offset_ = 0;
};
