#pragma once

#include <sqlite3.h>

#include <QString>
#include <memory>
#include <string_view>
#include <vector>

#include "storage/database_rows.h"

// A thin RAII layer over SQLite: every handle is released by its owner, and
// every failure is thrown as sqlite::error with SQLite's message.
namespace sqlite {

class error : public database_error {
public:
    using database_error::database_error;
};

// An open database file, created when missing unless opened to read only. A
// read-only connection may be shared by threads without a lock of their own.
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
    // Binds each $N of the statement to values[N - 1].
    statement& bind(const std::vector<database_value>& values);
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
    // Ends a run before its last row and clears the values.
    void reset();

private:
    struct finalizer {
        void operator()(sqlite3_stmt* statement) const { sqlite3_finalize(statement); }
    };

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

// The rows of a statement run with values. A statement kept for many runs is
// ready for the next once they are destroyed.
class rows : public database_rows {
public:
    rows(statement& kept, const std::vector<database_value>& values) : statement_(kept) {
        statement_.bind(values);
    }
    // Over a statement prepared for these rows alone.
    rows(connection& db, const char* sql, const std::vector<database_value>& values)
        : owned_(std::make_unique<statement>(db, sql)), statement_(*owned_) {
        statement_.bind(values);
    }
    ~rows() override { statement_.reset(); }
    bool next() override { return statement_.next(); }
    std::string_view view(int column) const override { return statement_.view(column); }
    qint64 integer(int column) const override { return statement_.integer(column); }
    bool is_null(int column) const override { return statement_.is_null(column); }

private:
    std::unique_ptr<statement> owned_;
    statement& statement_;
};

}  // namespace sqlite
