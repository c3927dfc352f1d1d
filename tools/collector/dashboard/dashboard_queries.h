#pragma once

#include <QJsonObject>
#include <QString>
#include <string>

#include "storage/collector_database.h"

// Which records an answer covers; an empty member does not restrict.
struct dashboard_filter {
    QString since;  // received at or after, as stored ("2026-11-23T09:00:00Z", or a prefix)
    QString until;  // received before
    QString type;
    QString app_id;
};

// What the dashboard shows, read from the collector's database, whichever
// engine keeps it, without holding up the uploads. Every answer reads
// record_facts and its indexes (or the files table), never the records' JSON,
// except record_body. Lists and chart values are capped (top_values, page
// sizes), so that no answer grows with what hosts send. Each throws
// database_error when the database fails.
class dashboard_queries {
public:
    static const int top_values = 10;  // per chart; the rest are summed as "(other)"

    explicit dashboard_queries(collector_database& database) : db_(database) {}

    // Records per type and day, totals per type, files; the types and
    // application ids of all records, for the filters.
    QJsonObject summary(const dashboard_filter& filter);
    // Machine and software values of the records of the filter's type (usage
    // records when it names none); the scores of score records.
    QJsonObject distributions(const dashboard_filter& filter);
    // The newest records first, limit of them from offset, and how many match.
    QJsonObject records(const dashboard_filter& filter, int offset, int limit);
    // The record's JSON as it was posted; false when there is no such record.
    bool record_body(qint64 id, std::string& body);
    // The newest feedback records' texts, emails and attachments.
    QJsonObject feedback(const dashboard_filter& filter, int limit);
    // The newest file uploads, and how many and how large all are.
    QJsonObject files(const dashboard_filter& filter, int limit);

private:
    collector_database& db_;
};
