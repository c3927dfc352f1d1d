#include "storage/pq_handle.h"

#include <poll.h>

#include <QByteArray>
#include <QString>
#include <cerrno>
#include <charconv>

namespace pq {

namespace {

// libpq's messages end with a line break and may span several lines.
std::string one_line(const char* message) {
    return QString::fromUtf8(message).simplified().toStdString();
}

}  // namespace

qint64 rows::integer(int column) const {
    const std::string_view text = view(column);
    qint64 number = 0;
    std::from_chars(text.data(), text.data() + text.size(), number);
    return number;
}

connection::connection(const std::string& uri, std::chrono::seconds patience)
    : patience_(patience) {
    // The URI's own settings override the first two; the encoding is ours.
    const std::string timeout = std::to_string(std::max<long long>(2, patience.count()));
    const char* const keys[] = {"connect_timeout", "fallback_application_name", "dbname",
                                "client_encoding", nullptr};
    const char* const values[] = {timeout.c_str(), "information_collector", uri.c_str(), "UTF8",
                                  nullptr};
    connection_.reset(PQconnectdbParams(keys, values, 1));
    if (!connection_) throw error("out of memory");
    if (PQstatus(connection_.get()) != CONNECTION_OK) fail();
    // Notices ("relation already exists, skipping") are not for the log.
    PQsetNoticeProcessor(
        connection_.get(), [](void*, const char*) {}, nullptr);
    if (PQsetnonblocking(connection_.get(), 1) != 0) fail();
}

result connection::execute(const std::string& sql, const std::vector<database_value>& values,
                           bool keep) {
    if (broken_) throw error("the connection to the database was lost");
    const auto deadline = clock::now() + patience_;
    std::vector<QByteArray> texts(values.size());
    std::vector<const char*> pointers(values.size(), nullptr);
    for (size_t i = 0; i < values.size(); ++i) {
        if (const auto* text = std::get_if<QString>(&values[i]))
            texts[i] = text->toUtf8();
        else if (const auto* number = std::get_if<qint64>(&values[i]))
            texts[i] = QByteArray::number(*number);
        else
            continue;  // NULL
        // libpq takes a text up to its first NUL, which PostgreSQL cannot store.
        if (texts[i].contains('\0')) throw error("a text with a NUL character cannot be stored");
        pointers[i] = texts[i].constData();
    }
    PGconn* const db = connection_.get();
    const int count = int(values.size());
    if (keep) {
        auto found = kept_.find(sql);
        if (found == kept_.end()) {
            const std::string name = "kept_" + std::to_string(kept_.size());
            if (!PQsendPrepare(db, name.c_str(), sql.c_str(), 0, nullptr)) fail();
            finish(deadline);
            found = kept_.emplace(sql, name).first;
        }
        if (!PQsendQueryPrepared(db, found->second.c_str(), count, pointers.data(), nullptr,
                                 nullptr, 0))
            fail();
    } else if (count == 0 ? !PQsendQuery(db, sql.c_str())
                          : !PQsendQueryParams(db, sql.c_str(), count, nullptr, pointers.data(),
                                               nullptr, nullptr, 0)) {
        fail();
    }
    return finish(deadline);
}

// Sends what is left of the request, then reads every result: the last one
// is given back, the first failure thrown.
result connection::finish(clock::time_point deadline) {
    PGconn* const db = connection_.get();
    for (int unsent; (unsent = PQflush(db)) != 0;) {
        if (unsent < 0) fail();
        wait(POLLIN | POLLOUT, deadline);
        if (!PQconsumeInput(db)) fail();
    }
    result last;
    std::string failure;
    for (;;) {
        while (PQisBusy(db)) {
            wait(POLLIN, deadline);
            if (!PQconsumeInput(db)) fail();
        }
        PGresult* next = PQgetResult(db);
        if (!next) break;
        const ExecStatusType status = PQresultStatus(next);
        if (status == PGRES_FATAL_ERROR || status == PGRES_BAD_RESPONSE ||
            status == PGRES_NONFATAL_ERROR) {
            if (failure.empty()) failure = one_line(PQresultErrorMessage(next));
            PQclear(next);
        } else {
            last = result(next);
        }
    }
    if (PQstatus(db) != CONNECTION_OK) broken_ = true;
    if (!failure.empty()) throw error(failure);
    return last;
}

// A server that does not answer within the patience leaves the connection in
// an unknown state: it is given up.
void connection::wait(short events, clock::time_point deadline) {
    for (;;) {
        const auto left =
            std::chrono::duration_cast<std::chrono::milliseconds>(deadline - clock::now());
        pollfd socket{PQsocket(connection_.get()), events, 0};
        const int ready = left.count() > 0 ? poll(&socket, 1, int(left.count())) : 0;
        if (ready > 0) return;
        if (ready < 0 && errno == EINTR) continue;
        broken_ = true;
        if (ready < 0) fail();
        throw error("the database did not answer within " + std::to_string(patience_.count()) +
                    " seconds");
    }
}

bool connection::usable() {
    if (broken_ || PQstatus(connection_.get()) != CONNECTION_OK) return false;
    pollfd socket{PQsocket(connection_.get()), POLLIN, 0};
    return poll(&socket, 1, 0) == 0;
}

std::string connection::description() const {
    PGconn* const db = connection_.get();
    return std::string(PQuser(db)) + "@" + PQhost(db) + ":" + PQport(db) + "/" + PQdb(db);
}

// libpq's own failures (not those of a statement) leave the connection in
// doubt: it is given up.
void connection::fail() {
    broken_ = true;
    throw error(one_line(PQerrorMessage(connection_.get())));
}

}  // namespace pq
