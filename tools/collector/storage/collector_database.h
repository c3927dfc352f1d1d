#pragma once

#include <QString>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "storage/database_rows.h"
#include "storage/record_facts.h"

// Where the collector keeps what it receives: an SQLite file, or a PostgreSQL
// database that several collectors may share. The routes store through this
// interface and the dashboard reads through it; neither knows which engine is
// underneath. Both engines hold the same tables with the same meaning (see
// README.md, Database). Safe to use from many threads at once.
// A row is committed before its add_ call returns, so every acknowledged
// upload survives the collector being stopped or killed.
class collector_database {
public:
    struct information_row {
        QString received_at;
        QString app_id;
        QString type;
        QString body;
        record_facts facts;
    };
    struct file_row {
        QString dfs_id;
        QString received_at;
        QString app_id;
        QString category;
        QString bucket;
        QString file_name;
        qint64 size = 0;
        QString stored_path;
    };

    // The version of the tables' layout that this collector writes. A
    // database of an older one is brought up to it when opened; one of a
    // newer one is not opened.
    static const int schema_version = 1;

    // Opens the database that name gives: a PostgreSQL URI (postgresql://...
    // or postgres://..., what it leaves out taken from the PG* environment
    // variables) or an SQLite file. Creates the tables when missing, and gives
    // records stored without their facts (by an older collector) their facts
    // before it returns. Throws database_error.
    static std::unique_ptr<collector_database> open(const QString& name);
    static bool is_postgresql(const QString& name);
    // name, without a password that a URI holds, for messages.
    static QString without_password(QString name);

    virtual ~collector_database() = default;
    collector_database(const collector_database&) = delete;
    collector_database& operator=(const collector_database&) = delete;

    // What the start-up line shows: the file's path, or the server, user and
    // database (never a password).
    virtual QString description() const = 0;
    int facts_added_on_open() const { return facts_added_on_open_; }

    // Each returns false when the row could not be stored, and error says why.
    bool add_information(const information_row& row, QString& error);
    bool add_file(const file_row& row, QString& error);

    // Runs a query for the dashboard, written in the SQL both engines read
    // ($1, $2, ... for values; texts compare byte by byte), and gives its rows.
    // Reading never holds up the uploads. Throws database_error.
    virtual std::unique_ptr<database_rows> read(const std::string& sql,
                                                const std::vector<database_value>& values) = 0;

    // Lets go of the database; later calls fail.
    virtual void close() = 0;

protected:
    collector_database() = default;

    // Each throws database_error when the row could not be stored.
    virtual void insert(const information_row& row) = 0;
    virtual void insert(const file_row& row) = 0;

    // The statements both engines run alike, and their values.
    static const char* const facts_columns;     // those of values_of(row)'s first 16
    static const std::string insert_facts_sql;  // $1 to $16 as values_of(row), $17 the id
    static const char* const insert_file_sql;
    // $1 to $16 for the facts ($10 and $13 whole numbers), $17 the body.
    static std::vector<database_value> values_of(const information_row& row);
    static std::vector<database_value> values_of(const file_row& row);

    // Throws when the database was laid out by a newer collector.
    static void check_version(qint64 stored_version);
    // Facts for the records that have none, through query (which runs a
    // statement within the caller's transaction); how many were added.
    using query_function = std::function<std::unique_ptr<database_rows>(
        const char* sql, const std::vector<database_value>& values)>;
    static int add_missing_facts(const query_function& query);

    int facts_added_on_open_ = 0;
};
