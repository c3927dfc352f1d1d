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

#include "windows_information_imp.h"

namespace TarvoConsumerScanner {
namespace information_api {

namespace {

const char* const record_folder = "./keploinfo/";

// The record files matching pattern, oldest first. QDir sorts newest first;
// the passes walk that list from its end.
QFileInfoList records_oldest_first(const QString& pattern) {
    QDir folder(record_folder);
    folder.setNameFilters(QStringList(pattern));
    folder.setFilter(QDir::Files);
    folder.setSorting(QDir::Time);
    QFileInfoList files = folder.entryInfoList();
    std::reverse(files.begin(), files.end());
    return files;
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
    for (const QFileInfo& file : records_oldest_first("*.info2")) {
        // Every later file is newer, so the first young one ends the pass.
        if (file.lastModified().daysTo(now) <= remain) break;
        const QString path = file.absoluteFilePath();
        LOG(INFO) << "delete file " << path.toStdString();
        QFile::remove(path);
    }
    // Score files are kept whatever their age.
}

int windows_information_imp::list_due_records(QStringList& out) {
    const QDateTime start = application_start_time();
    int listed = 0;
    for (const QFileInfo& file : records_oldest_first("*.info2")) {
        // Files of the running session (and ones finished just before it) wait
        // for a later run.
        const qint64 secs = file.lastModified().secsTo(start);
        if (secs < 3) continue;
        const QString path = file.absoluteFilePath();
        LOG(INFO) << "day_diff" << secs << "upload file " << path.toStdString();
        out.append(path);
        listed = out.size();
    }
    return listed;
}

void windows_information_imp::list_score_files(QStringList& out) {
    for (const QFileInfo& file : records_oldest_first("*.score2")) {
        LOG(INFO) << "file=" << file.fileName().toStdString();
        out.append(file.absoluteFilePath());
    }
}

int windows_information_imp::read_record_file(const QString& path, QString& data, QString& type) {
    if (!QFile::exists(path)) {
        LOG(INFO) << "file not exist" << path.toStdString();
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
