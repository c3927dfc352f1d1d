#pragma once

#include <condition_variable>
#include <deque>
#include <mutex>

#include "storage/collector_database.h"
#include "storage/pq_handle.h"

// The collector's database in PostgreSQL, which several collectors may share.
// Requests take a connection from a pool of a few. Information uploads that
// arrive while others are being written go in together, in one statement and
// one commit; the dashboard's reads see committed rows only and hold nothing
// up. A connection that fails or that the server ends is given up, and the
// next request makes a new one: while the server is away requests fail at
// once (the connection is refused) or within the patience, and once it is
// back the collector uses it again by itself.
class postgres_database : public collector_database {
public:
    static const int pool_size = 4;
    // Records written together at the most, and their bodies' bytes (past
    // the first record).
    static const size_t batch_size = 64;
    static const size_t batch_bytes = 1 << 20;
    static constexpr std::chrono::seconds patience{5};  // for any one call to the server

    // Connects, creates the tables when missing; throws database_error.
    explicit postgres_database(const std::string& uri);

    QString description() const override { return description_; }
    std::unique_ptr<database_rows> read(const std::string& sql,
                                        const std::vector<database_value>& values) override;
    void close() override;

private:
    // A connection for one call, given back when the lease ends.
    class lease;
    struct waiting_record;
    void insert(const information_row& row) override;
    void insert(const file_row& row) override;
    void prepare_layout(pq::connection& db);
    // Takes the records that wait, as many as go together, and writes them.
    void write_waiting(std::unique_lock<std::mutex>& lock);

    const std::string uri_;
    QString description_;
    std::mutex mutex_;
    std::condition_variable returned_;
    std::vector<std::unique_ptr<pq::connection>> idle_;
    int open_ = 0;  // idle and leased
    bool closed_ = false;

    std::vector<std::string> insert_sql_;  // [n - 1]: n records in one statement
    std::mutex waiting_mutex_;
    std::condition_variable written_;
    std::deque<waiting_record*> waiting_;
    bool writing_ = false;
};
