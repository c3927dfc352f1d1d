#include <glog/logging.h>

#include <QCoreApplication>
#include <QDateTime>
#include <QDebug>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QSettings>
#include <QVariant>
#include <algorithm>
#include <vector>

#include "windows_information_imp.h"

namespace TarvoConsumerScanner {
namespace information_api {

namespace {

const char* const record_folder = "./keploinfo/";

struct record_entry {
    QFileInfo file;
    QDateTime modified;
    qint64 modified_ms;
};

// The record files matching pattern, oldest first, in the order of a QDir
// sorted by time (newest first, equal times by name) walked from its end.
// The sort is done here on times read once per file: QDir reads them afresh,
// with a time zone conversion, at every comparison, which made a listing of
// ten thousand files take most of a second.
std::vector<record_entry> records_oldest_first(const QString& pattern) {
    QDir folder(record_folder);
    folder.setNameFilters(QStringList(pattern));
    // Hidden too: a session that never started writes its usage record as
    // ".info2", which is an ordinary file on Windows. Records are regular
    // files: a link could lead to any file of the machine.
    folder.setFilter(QDir::Files | QDir::Hidden | QDir::NoSymLinks);
    folder.setSorting(QDir::Unsorted);
    std::vector<record_entry> records;
    for (const QFileInfo& file : folder.entryInfoList()) {
        const QDateTime modified = file.lastModified();
        records.push_back({file, modified, modified.toMSecsSinceEpoch()});
    }
    std::sort(records.begin(), records.end(), [](const record_entry& a, const record_entry& b) {
        if (a.modified_ms != b.modified_ms) return a.modified_ms < b.modified_ms;
        return a.file.fileName() > b.file.fileName();
    });
    return records;
}

// The host sets "start_time" on its application object; without it (or
// without an application object) the start is invalid and nothing is due.
QDateTime application_start_time() {
    const QCoreApplication* application = QCoreApplication::instance();
    if (!application) return QDateTime();
    return application->property("start_time").toDateTime();
}

}  // namespace

void windows_information_imp::delete_old_records() {
    const int remain = system_setting("remain", 30);
    const QDateTime now = QDateTime::currentDateTime();
    for (const record_entry& record : records_oldest_first("*.info2")) {
        // Every later file is newer, so the first young one ends the pass.
        if (record.modified.daysTo(now) <= remain) break;
        const QString path = record.file.absoluteFilePath();
        LOG(INFO) << "delete file " << path.toStdString();
        QFile::remove(path);
    }
    // Score files are kept whatever their age.
}

int windows_information_imp::list_due_records(QStringList& out) {
    const QDateTime start = application_start_time();
    int listed = 0;
    for (const record_entry& record : records_oldest_first("*.info2")) {
        // Files of the running session (and ones finished just before it) wait
        // for a later run.
        const qint64 secs = record.modified.secsTo(start);
        if (secs < 3) continue;
        const QString path = record.file.absoluteFilePath();
        LOG(INFO) << "day_diff" << secs << "upload file " << path.toStdString();
        out.append(path);
        listed = out.size();
    }
    return listed;
}

void windows_information_imp::list_score_files(QStringList& out) {
    for (const record_entry& record : records_oldest_first("*.score2")) {
        LOG(INFO) << "file=" << record.file.fileName().toStdString();
        out.append(record.file.absoluteFilePath());
    }
}

int windows_information_imp::read_record_file(const QString& path, QString& data, QString& type) {
    if (!QFile::exists(path)) {
        LOG(INFO) << "file not exist" << path.toStdString();
        return -1;
    }
    // Only a regular file is a record: never what a link leads to.
    const QFileInfo file(path);
    if (file.isSymLink() || !file.isFile()) {
        LOG(WARNING) << "not a record file: " << path.toStdString();
        return -1;
    }
    const QSettings record(path, QSettings::IniFormat);
    type = record.value("type").toString();
    qDebug() << "type=" << type;
    data = QString::fromUtf8(record.value("data").toByteArray());
    return 0;
}

}  // namespace information_api
}  // namespace TarvoConsumerScanner
