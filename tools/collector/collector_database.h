#pragma once

#include <sqlite3.h>

#include <QString>
#include <mutex>

// The collector's SQLite file: one row per accepted information upload and
// one per stored file. Request threads share one connection behind a mutex.
class collector_database {
public:
    struct information_row {
        QString received_at;
        QString app_id;
        QString type;
        QString body;
    };
    struct file_row {
        QString dfs_id;
        QString received_at;
        QString app_id;
        QString category;
        QString bucket;
        QString file_name;
        qint64 size = 0;
        QString stored_path;
    };

    collector_database() = default;
    ~collector_database();
    collector_database(const collector_database&) = delete;
    collector_database& operator=(const collector_database&) = delete;

    // Opens (or creates) the file and its tables; on failure error says why.
    bool open(const QString& path, QString& error);
    void close();

    // Each returns the new row's id, or -1 and error says why.
    qint64 add_information(const information_row& row, QString& error);
    qint64 add_file(const file_row& row, QString& error);

private:
    qint64 insert(const char* sql, const QStringList& texts, const qint64* number, QString& error);

    sqlite3* db_ = nullptr;
    std::mutex mutex_;
};
