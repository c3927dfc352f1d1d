#pragma once

#include <QString>
#include <functional>
#include <memory>
#include <mutex>

#include "record_facts.h"
#include "sqlite_handle.h"

// The collector's SQLite file: one row per accepted information upload, with
// its facts for the dashboard in record_facts, and one per stored file.
// Request threads share one connection behind a mutex.
// A row is written (to the write-ahead log) before its add_ call returns, so
// every acknowledged upload survives the collector being stopped or killed.
class collector_database {
public:
    struct information_row {
        QString received_at;
        QString app_id;
        QString type;
        QString body;
        record_facts facts;
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

    collector_database();
    ~collector_database();
    collector_database(const collector_database&) = delete;
    collector_database& operator=(const collector_database&) = delete;

    // Opens (or creates) the file and its tables; on failure error says why.
    // Records stored without their facts (by an older collector) get them
    // here, before open returns.
    bool open(const QString& path, QString& error);
    int facts_added_on_open() const { return facts_added_on_open_; }
    void close();

    // Each returns false when the row could not be stored, and error says why.
    bool add_information(const information_row& row, QString& error);
    bool add_file(const file_row& row, QString& error);

private:
    struct handles;
    bool store(const std::function<void(handles&)>& insert, QString& error);

    std::mutex mutex_;
    std::unique_ptr<handles> db_;
    int facts_added_on_open_ = 0;
};
