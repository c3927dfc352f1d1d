#include "storage/sqlite_database.h"

#include <QFileInfo>

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

// The facts of every information row, for the dashboard's answers; lists are
// one value a line.
const char* const create_facts = R"sql(
CREATE TABLE IF NOT EXISTS record_facts (
  id           INTEGER PRIMARY KEY,  -- information.id
  received_at  TEXT NOT NULL,
  app_id       TEXT NOT NULL,
  type         TEXT NOT NULL,
  software_ver TEXT NOT NULL,
  model_name   TEXT NOT NULL,
  os_name      TEXT NOT NULL,
  language     TEXT NOT NULL,
  resolution   TEXT NOT NULL,
  cpu_model    TEXT NOT NULL,
  memory_bytes INTEGER NOT NULL,
  gpu_models   TEXT NOT NULL,
  modules      TEXT NOT NULL,
  score        INTEGER,
  email        TEXT NOT NULL,
  feedback     TEXT NOT NULL,
  attachments  TEXT NOT NULL
);
CREATE INDEX IF NOT EXISTS record_facts_by_type ON record_facts (type, received_at, app_id);
)sql";

const char* const insert_information_sql =
    "INSERT INTO information (received_at, app_id, type, body) VALUES ($1, $2, $3, $17) "
    "RETURNING id";

}  // namespace

sqlite_database::sqlite_database(const QString& path) : path_(QFileInfo(path).absoluteFilePath()) {
    writer_.emplace(path);
    // Readers (the sqlite3 command) may look while the collector writes.
    sqlite3_busy_timeout(writer_->handle(), 2000);
    // A commit goes to the write-ahead log without waiting for the disk:
    // it survives the process being killed (not a power cut) and costs
    // microseconds instead of a flush per upload.
    writer_->execute("PRAGMA journal_mode=WAL; PRAGMA synchronous=NORMAL");
    prepare_layout();
    reader_.emplace(path, true);
    sqlite3_busy_timeout(reader_->handle(), 2000);
}

// The layout's version is the file's user_version. Facts of an older layout
// are made anew.
void sqlite_database::prepare_layout() {
    sqlite::transaction schema(*writer_);
    writer_->execute(create_tables);
    sqlite::statement version(*writer_, "PRAGMA user_version");
    const qint64 stored_version = version.next() ? version.integer(0) : 0;
    version.reset();
    check_version(stored_version);
    if (stored_version != schema_version) {
        writer_->execute("DROP TABLE IF EXISTS record_facts");
        writer_->execute(("PRAGMA user_version = " + std::to_string(schema_version)).c_str());
    }
    writer_->execute(create_facts);
    facts_added_on_open_ = add_missing_facts([this](const char* sql, const auto& values) {
        return std::make_unique<sqlite::rows>(kept(sql), values);
    });
    schema.commit();
}

void sqlite_database::insert(const information_row& row) {
    std::lock_guard<std::mutex> lock(mutex_);
    std::vector<database_value> values = values_of(row);
    sqlite::transaction adding(writer());
    {
        sqlite::rows stored(kept(insert_information_sql), values);
        if (!stored.next()) throw database_error("no id for the new row");
        values.back() = stored.integer(0);
    }
    sqlite::rows(kept(insert_facts_sql), values).next();
    adding.commit();
}

void sqlite_database::insert(const file_row& row) {
    std::lock_guard<std::mutex> lock(mutex_);
    sqlite::rows(kept(insert_file_sql), values_of(row)).next();
}

sqlite::connection& sqlite_database::writer() {
    if (!writer_) throw database_error("the database is closed");
    return *writer_;
}

sqlite::statement& sqlite_database::kept(const std::string& sql) {
    return statements_.try_emplace(sql, writer(), sql.c_str()).first->second;
}

std::unique_ptr<database_rows> sqlite_database::read(const std::string& sql,
                                                     const std::vector<database_value>& values) {
    if (!reader_) throw database_error("the database is closed");
    return std::make_unique<sqlite::rows>(*reader_, sql.c_str(), values);
}

void sqlite_database::close() {
    std::lock_guard<std::mutex> lock(mutex_);
    statements_.clear();
    writer_.reset();
    reader_.reset();
}
