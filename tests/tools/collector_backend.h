#pragma once

// The collector's tests run on each database it offers: SQLite, in a file of
// the test's folder, and PostgreSQL, in a database of its own in the cluster
// that with_postgresql.sh starts and the PG* variables name.
#include <libpq-fe.h>

#include "collector_client.h"

namespace collector_test {

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

    // The rows of sql (which may also change the database); a failure is {{"error", why}}.
    table stored(const std::string& sql) const {
        if (GetParam() == "sqlite") return tool_test::sqlite_rows(database_, sql);
        std::unique_ptr<PGconn, void (*)(PGconn*)> db(PQconnectdb(database_.c_str()), PQfinish);
        std::unique_ptr<PGresult, void (*)(PGresult*)> result(PQexec(db.get(), sql.c_str()),
                                                              PQclear);
        if (*PQresultErrorMessage(result.get()))
            return {{"error", PQresultErrorMessage(result.get())}};
        table rows(PQntuples(result.get()));
        for (size_t row = 0; row < rows.size(); ++row)
            for (int column = 0; column < PQnfields(result.get()); ++column)
                rows[row].emplace_back(PQgetvalue(result.get(), int(row), column));
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
