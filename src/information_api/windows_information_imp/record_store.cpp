#include <glog/logging.h>

#include <QCoreApplication>
#include <QDateTime>
#include <QDebug>
#include <QDir>
#include <QDirIterator>
#include <QFile>
#include <algorithm>
#include <vector>

#ifdef _WIN32
#ifndef NOMINMAX
#define NOMINMAX
#endif
#include <windows.h>
#else
#include <sys/stat.h>
#endif

#include "record_file.h"
#include "windows_information_imp.h"

namespace TarvoConsumerScanner {
namespace information_api {

namespace {

const char* const record_folder = "./keploinfo/";

struct record_entry {
    QString name;
    QString path;        // absolute
    qint64 modified_ms;  // UTC, milliseconds since the epoch
};

// The last modification of a file, read from the file system as UTC
// milliseconds: QFileInfo hands out local date-times, whose conversions cost
// several time-zone lookups per file, which made a listing of ten thousand
// records take a third of a second.
qint64 modified_msecs(const QString& path) {
#ifdef _WIN32
    WIN32_FILE_ATTRIBUTE_DATA data;
    if (!GetFileAttributesExW(reinterpret_cast<const wchar_t*>(path.utf16()), GetFileExInfoStandard,
                              &data))
        return 0;
    ULARGE_INTEGER ticks;  // 100 ns since 1601
    ticks.LowPart = data.ftLastWriteTime.dwLowDateTime;
    ticks.HighPart = data.ftLastWriteTime.dwHighDateTime;
    return static_cast<qint64>(ticks.QuadPart / 10000) - 11644473600000LL;
#else
    struct stat status;
    if (::stat(QFile::encodeName(path).constData(), &status) != 0) return 0;
    return static_cast<qint64>(status.st_mtim.tv_sec) * 1000 + status.st_mtim.tv_nsec / 1000000;
#endif
}

// The record files with this extension (in any letter case, as a QDir name
// filter takes it), oldest first, in the order of a QDir sorted by time
// (newest first, equal times by name) walked from its end. Times are read
// once per file and sorted here, names are matched and paths joined by hand:
// the QDir way cost most of a listing of ten thousand records.
std::vector<record_entry> records_oldest_first(const QString& extension) {
    const QString folder = QDir(record_folder).absolutePath() + '/';
    std::vector<record_entry> records;
    // Files, as a QDir filter gives them: links to files among them, never
    // folders, devices, pipes or sockets. On Linux dot files too: a session
    // that never started writes its usage record as ".info2", which is an
    // ordinary file on Windows.
#ifdef _WIN32
    const QDir::Filters files = QDir::Files;
#else
    const QDir::Filters files = QDir::Files | QDir::Hidden;
#endif
    QDirIterator entries(record_folder, files);
    while (entries.hasNext()) {
        entries.next();
        const QString name = entries.fileName();
        if (!name.endsWith(extension, Qt::CaseInsensitive)) continue;
        const QString path = folder + name;
        records.push_back({name, path, modified_msecs(path)});
    }
    std::sort(records.begin(), records.end(), [](const record_entry& a, const record_entry& b) {
        if (a.modified_ms != b.modified_ms) return a.modified_ms < b.modified_ms;
        return a.name > b.name;
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
    // A file is older than remain whole calendar days when it was last
    // written before the local midnight that began the day remain days ago.
    const QDate today = QDate::currentDate();
    const qint64 young_from = QDateTime(today.addDays(-remain), QTime(0, 0)).toMSecsSinceEpoch();
    for (const record_entry& record : records_oldest_first(".info2")) {
        // Every later file is newer, so the first young one ends the pass.
        if (record.modified_ms >= young_from) break;
        LOG(INFO) << "delete file " << record.path.toStdString();
        QFile::remove(record.path);
    }
    // Score files are kept whatever their age.
}

int windows_information_imp::list_due_records(QStringList& out) {
    const QDateTime start = application_start_time();
    if (!start.isValid()) return 0;
    const qint64 start_ms = start.toMSecsSinceEpoch();
    int listed = 0;
    for (const record_entry& record : records_oldest_first(".info2")) {
        // Files of the running session (and ones finished just before it) wait
        // for a later run. Whole seconds, cut toward zero, as QDateTime counts.
        const qint64 secs = (start_ms - record.modified_ms) / 1000;
        if (secs < 3) continue;
        LOG(INFO) << "day_diff" << secs << "upload file " << record.path.toStdString();
        out.append(record.path);
        listed = out.size();
    }
    return listed;
}

void windows_information_imp::list_score_files(QStringList& out) {
    for (const record_entry& record : records_oldest_first(".score2")) {
        LOG(INFO) << "file=" << record.name.toStdString();
        out.append(record.path);
    }
}

int windows_information_imp::read_record_file(const QString& path, QString& data, QString& type) {
    if (!QFile::exists(path)) {
        LOG(INFO) << "file not exist" << path.toStdString();
        return -1;
    }
    // Read without QSettings' rebuilding of Qt types where a value could ask
    // for one: such a file, like one that is no regular file, gives empty values.
    const record_values record = read_record_values(path);
    type = record.type;
    qDebug() << "type=" << type;
    data = record.data;
    return 0;
}

}  // namespace information_api
}  // namespace TarvoConsumerScanner
