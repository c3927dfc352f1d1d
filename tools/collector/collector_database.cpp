#include "collector_database.h"

#include <QStringList>

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

collector_database::~collector_database() {
    close();
}

bool collector_database::open(const QString& path, QString& error) {
    close();
    std::lock_guard<std::mutex> lock(mutex_);
    if (sqlite3_open_v2(path.toUtf8().constData(), &db_, SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE,
                        nullptr) != SQLITE_OK) {
        error = QString::fromUtf8(db_ ? sqlite3_errmsg(db_) : "out of memory");
        sqlite3_close(db_);
        db_ = nullptr;
        return false;
    }
    // Readers (the sqlite3 command) may look while the collector writes.
    sqlite3_busy_timeout(db_, 2000);
    char* message = nullptr;
    if (sqlite3_exec(db_, create_tables, nullptr, nullptr, &message) != SQLITE_OK) {
        error = QString::fromUtf8(message ? message : sqlite3_errmsg(db_));
        sqlite3_free(message);
        sqlite3_close(db_);
        db_ = nullptr;
        return false;
    }
    return true;
}

void collector_database::close() {
    std::lock_guard<std::mutex> lock(mutex_);
    if (db_) sqlite3_close(db_);
    db_ = nullptr;
}

qint64 collector_database::add_information(const information_row& row, QString& error) {
    return insert("INSERT INTO information (received_at, app_id, type, body) VALUES (?, ?, ?, ?)",
                  {row.received_at, row.app_id, row.type, row.body}, nullptr, error);
}

qint64 collector_database::add_file(const file_row& row, QString& error) {
    return insert(
        "INSERT INTO files (dfs_id, received_at, app_id, category, bucket, file_name, "
        "stored_path, size) VALUES (?, ?, ?, ?, ?, ?, ?, ?)",
        {row.dfs_id, row.received_at, row.app_id, row.category, row.bucket, row.file_name,
         row.stored_path},
        &row.size, error);
}

// Binds texts to the first parameters and, when given, number to the next one.
qint64 collector_database::insert(const char* sql, const QStringList& texts, const qint64* number,
                                  QString& error) {
    std::lock_guard<std::mutex> lock(mutex_);
    if (!db_) {
        error = "database is not open";
        return -1;
    }
    sqlite3_stmt* statement = nullptr;
    if (sqlite3_prepare_v2(db_, sql, -1, &statement, nullptr) != SQLITE_OK) {
        error = QString::fromUtf8(sqlite3_errmsg(db_));
        return -1;
    }
    int index = 1;
    for (const QString& text : texts) {
        const QByteArray utf8 = text.toUtf8();
        sqlite3_bind_text(statement, index++, utf8.constData(), utf8.size(), SQLITE_TRANSIENT);
    }
    if (number) sqlite3_bind_int64(statement, index, *number);
    qint64 id = -1;
    if (sqlite3_step(statement) == SQLITE_DONE)
        id = sqlite3_last_insert_rowid(db_);
    else
        error = QString::fromUtf8(sqlite3_errmsg(db_));
    sqlite3_finalize(statement);
    return id;
}
