#pragma once

#include <map>
#include <mutex>
#include <optional>

#include "storage/collector_database.h"
#include "storage/sqlite_handle.h"

// The collector's database in an SQLite file. Request threads share one
// connection behind a mutex for writing; the dashboard reads through a
// read-only connection of its own, which in write-ahead-log mode never holds
// up the uploads.
class sqlite_database : public collector_database {
public:
    // Opens (or creates) the file and its tables; throws database_error.
    explicit sqlite_database(const QString& path);

    QString description() const override { return path_; }
    std::unique_ptr<database_rows> read(const std::string& sql,
                                        const std::vector<database_value>& values) override;
    void close() override;

private:
    void insert(const information_row& row) override;
    void insert(const file_row& row) override;
    void prepare_layout();
    // The writer, or a failure once closed. Both take the mutex first.
    sqlite::connection& writer();
    // The writer's statement for sql, prepared on its first use.
    sqlite::statement& kept(const std::string& sql);

    const QString path_;
    std::mutex mutex_;  // over writer_ and the statements
    std::optional<sqlite::connection> writer_;
    std::optional<sqlite::connection> reader_;
    std::map<std::string, sqlite::statement> statements_;  // the writer's, by their SQL
};
