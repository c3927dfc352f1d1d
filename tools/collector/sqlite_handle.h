#pragma once

#include <sqlite3.h>

#include <QString>
#include <memory>
#include <stdexcept>
#include <string_view>

// A thin RAII layer over SQLite: every handle is released by its owner, and
// every failure is thrown as sqlite::error with SQLite's message.
namespace sqlite {

class error : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

// An open database file, created when missing unless opened to read only.
class connection {
public:
    explicit connection(const QString& path, bool read_only = false);

    // Runs statements that return nothing of interest.
    void execute(const char* sql);
    sqlite3* handle() const { return db_.get(); }
    [[noreturn]] void fail() const;

private:
    struct closer {
        void operator()(sqlite3* db) const { sqlite3_close_v2(db); }
    };
    std::unique_ptr<sqlite3, closer> db_;
};

// A prepared statement, run any number of times with new values.
class statement {
public:
    statement(connection& db, const char* sql);

    statement& bind(int index, const QString& text);
    statement& bind(int index, qint64 number);
    // Runs to completion, then clears the values for the next run.
    void run();
    // Steps to the next row of a query: false at its end, where the statement
    // is ready for new values.
    bool next();
    // The columns of the current row; a view lasts until the next step.
    std::string_view view(int column) const;
    QString text(int column) const;
    qint64 integer(int column) const;
    bool is_null(int column) const;

private:
    struct finalizer {
        void operator()(sqlite3_stmt* statement) const { sqlite3_finalize(statement); }
    };
    void reset();

    connection& db_;
    std::unique_ptr<sqlite3_stmt, finalizer> statement_;
};

// BEGIN IMMEDIATE; rolled back when left without commit().
class transaction {
public:
    explicit transaction(connection& db);
    ~transaction();
    transaction(const transaction&) = delete;
    transaction& operator=(const transaction&) = delete;

    void commit();

private:
    connection& db_;
    bool open_ = true;
};

}  // namespace sqlite
