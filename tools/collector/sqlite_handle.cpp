#include "sqlite_handle.h"

#include <string>

namespace sqlite {

connection::connection(const QString& path) {
    sqlite3* db = nullptr;
    const int result = sqlite3_open_v2(path.toUtf8().constData(), &db,
                                       SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE, nullptr);
    db_.reset(db);
    if (result != SQLITE_OK) {
        if (!db) throw error("out of memory");
        fail();
    }
}

void connection::execute(const char* sql) {
    if (sqlite3_exec(db_.get(), sql, nullptr, nullptr, nullptr) != SQLITE_OK) fail();
}

void connection::fail() const {
    throw error(sqlite3_errmsg(db_.get()));
}

statement::statement(connection& db, const char* sql) : db_(db) {
    sqlite3_stmt* prepared = nullptr;
    if (sqlite3_prepare_v2(db.handle(), sql, -1, &prepared, nullptr) != SQLITE_OK) db.fail();
    statement_.reset(prepared);
}

statement& statement::bind(int index, const QString& text) {
    const QByteArray utf8 = text.toUtf8();
    if (sqlite3_bind_text(statement_.get(), index, utf8.constData(), utf8.size(),
                          SQLITE_TRANSIENT) != SQLITE_OK)
        db_.fail();
    return *this;
}

statement& statement::bind(int index, qint64 number) {
    if (sqlite3_bind_int64(statement_.get(), index, number) != SQLITE_OK) db_.fail();
    return *this;
}

void statement::run() {
    const int result = sqlite3_step(statement_.get());
    const std::string why = result == SQLITE_DONE ? std::string() : sqlite3_errmsg(db_.handle());
    sqlite3_reset(statement_.get());
    sqlite3_clear_bindings(statement_.get());
    if (result != SQLITE_DONE) throw error(why);
}

transaction::transaction(connection& db) : db_(db) {
    db_.execute("BEGIN IMMEDIATE");
}

transaction::~transaction() {
    if (open_) sqlite3_exec(db_.handle(), "ROLLBACK", nullptr, nullptr, nullptr);
}

void transaction::commit() {
    db_.execute("COMMIT");
    open_ = false;
}

}  // namespace sqlite
