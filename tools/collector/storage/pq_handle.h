#pragma once

#include <libpq-fe.h>

#include <chrono>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "storage/database_rows.h"

// A thin RAII layer over libpq, PostgreSQL's client library: every handle is
// released by its owner, every failure is thrown as pq::error with the
// server's or libpq's message, and no call waits for the server longer than
// the connection's patience.
namespace pq {

class error : public database_error {
public:
    using database_error::database_error;
};

// What a statement gave back, with its rows.
class result {
public:
    explicit result(PGresult* result = nullptr) : result_(result) {}

    int rows() const { return PQntuples(result_.get()); }
    std::string_view value(int row, int column) const {
        return {PQgetvalue(result_.get(), row, column),
                size_t(PQgetlength(result_.get(), row, column))};
    }
    bool is_null(int row, int column) const { return PQgetisnull(result_.get(), row, column) != 0; }

private:
    struct clear {
        void operator()(PGresult* result) const { PQclear(result); }
    };
    std::unique_ptr<PGresult, clear> result_;
};

// The rows of a result, one at a time.
class rows : public database_rows {
public:
    explicit rows(result&& all) : all_(std::move(all)) {}
    bool next() override { return ++row_ < all_.rows(); }
    std::string_view view(int column) const override { return all_.value(row_, column); }
    qint64 integer(int column) const override;
    bool is_null(int column) const override { return all_.is_null(row_, column); }

private:
    result all_;
    int row_ = -1;
};

// One connection to a server, in UTF-8.
class connection {
public:
    // Connects to the server that uri names (postgresql://...; what it leaves
    // out comes from the PG* environment variables).
    connection(const std::string& uri, std::chrono::seconds patience);

    // Runs sql with values for $1, $2, ... (without values, sql may hold
    // several statements). With keep, sql is prepared on its first run on
    // this connection and kept for the next ones.
    result execute(const std::string& sql, const std::vector<database_value>& values = {},
                   bool keep = false);
    // False once the connection has failed, or when the server has said
    // something while it was idle, which it does only to end it (on shutdown,
    // or when an administrator ends it).
    bool usable();
    // user@host:port/database
    std::string description() const;

private:
    using clock = std::chrono::steady_clock;
    result finish(clock::time_point deadline);
    void wait(short events, clock::time_point deadline);
    [[noreturn]] void fail();

    struct finisher {
        void operator()(PGconn* connection) const { PQfinish(connection); }
    };
    std::unique_ptr<PGconn, finisher> connection_;
    std::chrono::seconds patience_;
    std::map<std::string, std::string> kept_;  // names of prepared statements, by their SQL
    bool broken_ = false;
};

}  // namespace pq
