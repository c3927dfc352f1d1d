#include "collector_database.h"

#include <optional>
#include <string>
#include <vector>

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
// one value a line. A database of another facts_version has them made anew.
const int facts_version = 1;
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

const char* const insert_facts_sql =
    "INSERT INTO record_facts (id, received_at, app_id, type, software_ver, model_name, os_name, "
    "language, resolution, cpu_model, memory_bytes, gpu_models, modules, score, email, feedback, "
    "attachments) VALUES (?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?)";

void write_facts(sqlite::statement& insert, qint64 id,
                 const collector_database::information_row& row) {
    const record_facts& facts = row.facts;
    insert.bind(1, id)
        .bind(2, row.received_at)
        .bind(3, row.app_id)
        .bind(4, row.type)
        .bind(5, facts.software_version)
        .bind(6, facts.model_name)
        .bind(7, facts.os_name)
        .bind(8, facts.language)
        .bind(9, facts.resolution)
        .bind(10, facts.cpu_model)
        .bind(11, facts.memory_bytes)
        .bind(12, joined(facts.gpu_models))
        .bind(13, joined(facts.modules))
        .bind(15, facts.email)
        .bind(16, facts.feedback)
        .bind(17, joined(facts.attachments));
    if (facts.score) insert.bind(14, *facts.score);  // else NULL
    insert.run();
}

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
        sqlite::statement version(db, "PRAGMA user_version");
        const qint64 stored_version = version.next() ? version.integer(0) : 0;
        version.run();
        if (stored_version != facts_version) {
            db.execute("DROP TABLE IF EXISTS record_facts");
            db.execute(("PRAGMA user_version = " + std::to_string(facts_version)).c_str());
        }
        db.execute(create_facts);
        schema.commit();
        insert_information.emplace(
            db, "INSERT INTO information (received_at, app_id, type, body) VALUES (?, ?, ?, ?)");
        insert_facts.emplace(db, insert_facts_sql);
        insert_file.emplace(db,
                            "INSERT INTO files (dfs_id, received_at, app_id, category, bucket, "
                            "file_name, size, stored_path) VALUES (?, ?, ?, ?, ?, ?, ?, ?)");
    }

    // Facts for the records that have none, in one transaction; how many.
    int add_missing_facts() {
        std::vector<qint64> missing;
        sqlite::statement list(db,
                               "SELECT i.id FROM information i LEFT JOIN record_facts f "
                               "ON f.id = i.id WHERE f.id IS NULL ORDER BY i.id");
        while (list.next()) missing.push_back(list.integer(0));
        sqlite::statement read(db,
                               "SELECT received_at, app_id, type, body FROM information "
                               "WHERE id = ?");
        sqlite::transaction adding(db);
        for (const qint64 id : missing) {
            read.bind(1, id);
            if (!read.next()) continue;
            const std::string_view body = read.view(3);
            collector_database::information_row row{
                read.text(0), read.text(1), read.text(2), QString(),
                facts_of_body(QByteArray::fromRawData(body.data(), int(body.size())))};
            read.run();  // to its end
            write_facts(*insert_facts, id, row);
        }
        adding.commit();
        return int(missing.size());
    }

    sqlite::connection db;
    std::optional<sqlite::statement> insert_information;
    std::optional<sqlite::statement> insert_facts;
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
        facts_added_on_open_ = db_->add_missing_facts();
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
            sqlite::transaction adding(db.db);
            db.insert_information->bind(1, row.received_at)
                .bind(2, row.app_id)
                .bind(3, row.type)
                .bind(4, row.body)
                .run();
            write_facts(*db.insert_facts, sqlite3_last_insert_rowid(db.db.handle()), row);
            adding.commit();
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
