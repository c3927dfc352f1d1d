#include "compare_fixtures.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonDocument>
#include <QJsonObject>
#include <QSettings>
#include <QTemporaryDir>

namespace bench {

QByteArray sample_body() {
    QJsonObject content;
    for (int i = 0; i < 24; ++i)
        content.insert(QString("key%1").arg(i), QString("value of a usage record field %1").arg(i));
    QJsonObject record{{"type", "usage"}, {"softwareVer", "1.4.2"}, {"content", content}};
    return QJsonDocument(record).toJson(QJsonDocument::Compact);
}

void write_records(const QString& folder, int count, const QString& suffix,
                   const std::function<qint64(int)>& age_seconds) {
    QDir records(folder + "/keploinfo");
    records.removeRecursively();
    QDir().mkpath(records.path());
    // One file through QSettings, as the library writes it; its bytes for all.
    QByteArray bytes;
    {
        QTemporaryDir scratch;
        const QString path = scratch.filePath("record");
        {
            QSettings record(path, QSettings::IniFormat);
            record.setValue("data", QVariant(sample_body()));
            record.setValue("type", "usage");
        }
        QFile file(path);
        if (file.open(QIODevice::ReadOnly)) bytes = file.readAll();
    }
    const qint64 now = QDateTime::currentSecsSinceEpoch();
    for (int i = 0; i < count; ++i) {
        const QString path =
            records.filePath(QString("r%1%2").arg(i, 5, 10, QChar('0')).arg(suffix));
        QFile file(path);
        if (!file.open(QIODevice::WriteOnly) || file.write(bytes) != bytes.size()) continue;
        file.close();
        const timespec times[2] = {{now - age_seconds(i), 0}, {now - age_seconds(i), 0}};
        ::utimensat(AT_FDCWD, QFile::encodeName(path).constData(), times, 0);
    }
}

void write_curl_posts(const QString& path, const QString& url, const QString& body_file, int count,
                      bool keep_alive) {
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly)) return;
    const QByteArray one =
        QString(
            "url = \"%1?type=usage\"\n"
            "data-binary = \"@%2\"\n"
            "header = \"Content-Type: application/json;charset=utf-8\"\n"
            "header = \"X-Auth-AppID: a94e07b3c2d851f6e0b7a4c39d2f6e58\"\n"
            "output = \"/dev/null\"\n%3")
            .arg(url, body_file, keep_alive ? "" : "header = \"Connection: close\"\n")
            .toUtf8();
    for (int i = 0; i < count; ++i) file.write(i == 0 ? one : "next\n" + one);
}

void write_text(const QString& path, const QByteArray& text) {
    QDir().mkpath(QFileInfo(path).absolutePath());
    QFile file(path);
    if (file.open(QIODevice::WriteOnly)) file.write(text);
}

bool write_sparse_file(const QString& path, qint64 size) {
    QFile file(path);
    return file.open(QIODevice::WriteOnly) && file.resize(size);
}

}  // namespace bench
