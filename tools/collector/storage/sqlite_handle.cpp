#include "storage/sqlite_handle.h"

#include <cstdlib>
#include <string>

namespace sqlite {

connection::connection(const QString& path, bool read_only) {
    sqlite3* db = nullptr;
    const int flags = read_only ? SQLITE_OPEN_READONLY | SQLITE_OPEN_FULLMUTEX
                                : SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE;
    const int result = sqlite3_open_v2(path.toUtf8().constData(), &db, flags, nullptr);
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

statement& statement::bind(const std::vector<database_value>& values) {
    const int count = sqlite3_bind_parameter_count(statement_.get());
    for (int index = 1; index <= count; ++index) {
        const char* name = sqlite3_bind_parameter_name(statement_.get(), index);
        const size_t number = name && name[0] == '$' ? size_t(std::atoi(name + 1)) : 0;
        if (number == 0 || number > values.size())
            throw error(std::string("no value for parameter ") + (name ? name : "?"));
        const database_value& value = values[number - 1];
        if (const auto* text = std::get_if<QString>(&value))
            bind(index, *text);
        else if (const auto* whole = std::get_if<qint64>(&value))
            bind(index, *whole);
    }
    return *this;
}

void statement::run() {
    if (next()) reset();
}

bool statement::next() {
    const int result = sqlite3_step(statement_.get());
    if (result == SQLITE_ROW) return true;
    const std::string why = result == SQLITE_DONE ? std::string() : sqlite3_errmsg(db_.handle());
    reset();
    if (result != SQLITE_DONE) throw error(why);
    return false;
}

void statement::reset() {
    sqlite3_reset(statement_.get());
    sqlite3_clear_bindings(statement_.get());
}

std::string_view statement::view(int column) const {
    const auto* text = reinterpret_cast<const char*>(sqlite3_column_text(statement_.get(), column));
    return text ? std::string_view(text, size_t(sqlite3_column_bytes(statement_.get(), column)))
                : std::string_view();
}

QString statement::text(int column) const {
    const std::string_view utf8 = view(column);
    return QString::fromUtf8(utf8.data(), int(utf8.size()));
}

qint64 statement::integer(int column) const {
    return sqlite3_column_int64(statement_.get(), column);
}

bool statement::is_null(int column) const {
    return sqlite3_column_type(statement_.get(), column) == SQLITE_NULL;
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
