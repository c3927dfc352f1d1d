#include "collector_database.h"

#include <optional>

namespace {

const char* const create_tables = R"sql(
CREATE TABLE IF NOT EXISTS information (
  id          INTEGER PRIMARY KEY AUTOINCREMENT,
  received_at TEXT NOT NULL,
  app_id      TEXT NOT NULL,
  type        TEXT NOT NULL,
  body        TEXT NOT NULL
);
CREATE TABLE IF NOT EXISTS files (
  id          INTEGER PRIMARY KEY AUTOINCREMENT,
  dfs_id      TEXT NOT NULL UNIQUE,
  received_at TEXT NOT NULL,
  app_id      TEXT NOT NULL,
  category    TEXT NOT NULL,
  bucket      TEXT NOT NULL,
  file_name   TEXT NOT NULL,
  size        INTEGER NOT NULL,
  stored_path TEXT NOT NULL
);
)sql";

}  // namespace

// The connection and its statements, which go first.
struct collector_database::handles {
    explicit handles(const QString& path) : db(path) {
        // Readers (the sqlite3 command) may look while the collector writes.
        sqlite3_busy_timeout(db.handle(), 2000);
        // A commit goes to the write-ahead log without waiting for the disk:
        // it survives the process being killed (not a power cut) and costs
        // microseconds instead of a flush per upload.
        db.execute("PRAGMA journal_mode=WAL; PRAGMA synchronous=NORMAL");
        sqlite::transaction schema(db);
        db.execute(create_tables);
        schema.commit();
        insert_information.emplace(
            db, "INSERT INTO information (received_at, app_id, type, body) VALUES (?, ?, ?, ?)");
        insert_file.emplace(db,
                            "INSERT INTO files (dfs_id, received_at, app_id, category, bucket, "
                            "file_name, size, stored_path) VALUES (?, ?, ?, ?, ?, ?, ?, ?)");
    }

    sqlite::connection db;
    std::optional<sqlite::statement> insert_information;
    std::optional<sqlite::statement> insert_file;
};

collector_database::collector_database() = default;

collector_database::~collector_database() {
    close();
}

bool collector_database::open(const QString& path, QString& error) {
    std::lock_guard<std::mutex> lock(mutex_);
    try {
        db_.reset();
        db_ = std::make_unique<handles>(path);
        return true;
    } catch (const sqlite::error& e) {
        error = QString::fromUtf8(e.what());
        return false;
    }
}

void collector_database::close() {
    std::lock_guard<std::mutex> lock(mutex_);
    db_.reset();
}

bool collector_database::add_information(const information_row& row, QString& error) {
    return store(
        [&](handles& db) {
            db.insert_information->bind(1, row.received_at)
                .bind(2, row.app_id)
                .bind(3, row.type)
                .bind(4, row.body)
                .run();
        },
        error);
}

bool collector_database::add_file(const file_row& row, QString& error) {
    return store(
        [&](handles& db) {
            db.insert_file->bind(1, row.dfs_id)
                .bind(2, row.received_at)
                .bind(3, row.app_id)
                .bind(4, row.category)
                .bind(5, row.bucket)
                .bind(6, row.file_name)
                .bind(7, row.size)
                .bind(8, row.stored_path)
                .run();
        },
        error);
}

bool collector_database::store(const std::function<void(handles&)>& insert, QString& error) {
    std::lock_guard<std::mutex> lock(mutex_);
    try {
        if (!db_) throw sqlite::error("database is not open");
        insert(*db_);
        return true;
    } catch (const sqlite::error& e) {
        error = QString::fromUtf8(e.what());
        return false;
    }
}
