#pragma once

// The collector's tests run on each database it offers: SQLite, in a file of
// the test's folder, and PostgreSQL, in a database of its own in the cluster
// that with_postgresql.sh starts and the PG* variables name.
#include <libpq-fe.h>
#include <sqlite3.h>

#include <QDir>

#include "collector_client.h"

namespace collector_test {

using table = std::vector<std::vector<std::string>>;

// A test run once on each database, in a folder of its own.
class on_each_database : public testing::TestWithParam<std::string> {
protected:
    void SetUp() override {
        QDir().mkpath(QString::fromStdString(GetParam()));
        QDir::setCurrent(QString::fromStdString(GetParam()));
        if (GetParam() == "postgresql" && !std::getenv("PGPORT"))
            GTEST_SKIP() << "no PostgreSQL cluster: run the test with with_postgresql.sh";
    }
    void TearDown() override { QDir::setCurrent(".."); }

    // The arguments of a collector in folder: extra, and a new database.
    QStringList on(const QString& folder, const QStringList& extra = {}) {
        database_ = QDir(folder).absoluteFilePath("collector.sqlite").toStdString();
        if (GetParam() == "postgresql") {
            const std::string name =
                "collector_" + folder.toLower().replace(' ', '_').toStdString();
            database_ = "postgresql:///postgres";
            stored("DROP DATABASE IF EXISTS " + name);
            stored("CREATE DATABASE " + name);
            database_ = "postgresql:///" + name;
        }
        return extra + QStringList{"--database", QString::fromStdString(database_)};
    }

    // The rows of sql (which may also change the database), each column as text.
    table stored(const std::string& sql) const {
        table rows;
        if (GetParam() == "sqlite") {
            sqlite3* db = nullptr;
            sqlite3_open(database_.c_str(), &db);
            const auto add = [](void* out, int columns, char** values, char**) {
                auto& added = static_cast<table*>(out)->emplace_back();
                for (int i = 0; i < columns; ++i) added.emplace_back(values[i] ? values[i] : "");
                return 0;
            };
            EXPECT_EQ(sqlite3_exec(db, sql.c_str(), add, &rows, nullptr), SQLITE_OK)
                << sqlite3_errmsg(db);
            sqlite3_close(db);
            return rows;
        }
        std::unique_ptr<PGconn, void (*)(PGconn*)> db(PQconnectdb(database_.c_str()), PQfinish);
        PQsetNoticeProcessor(
            db.get(), [](void*, const char*) {}, nullptr);
        std::unique_ptr<PGresult, void (*)(PGresult*)> result(PQexec(db.get(), sql.c_str()),
                                                              PQclear);
        EXPECT_EQ(PQresultErrorMessage(result.get()), std::string()) << sql;
        for (int row = 0; row < PQntuples(result.get()); ++row)
            for (int column = 0; column < PQnfields(result.get()); ++column)
                (column ? rows.back() : rows.emplace_back())
                    .emplace_back(PQgetvalue(result.get(), row, column));
        return rows;
    }

private:
    std::string database_;  // the file's path, or a URI
};

}  // namespace collector_test

// Runs suite's tests once on each database named.
#define ON_DATABASES(suite, ...)                                      \
    INSTANTIATE_TEST_SUITE_P(on, suite, testing::Values(__VA_ARGS__), \
                             [](const auto& info) { return info.param; })
