#include "dashboard/dashboard_queries.h"

#include <QFileInfo>
#include <QJsonArray>
#include <QUrl>
#include <algorithm>
#include <iterator>
#include <map>
#include <optional>
#include <unordered_map>
#include <vector>

namespace {

using counts = std::unordered_map<std::string, qint64>;
using rows_of = std::unique_ptr<database_rows>;

// head, the filter's clauses, tail. Values go in as bound parameters: the
// filter's, then tail_values, which the tail names %1, %2, ...
rows_of select(collector_database& db, const dashboard_filter& filter, const char* head,
               const char* tail = "", const std::vector<database_value>& tail_values = {}) {
    QStringList clauses;
    std::vector<database_value> values;
    const auto restrict = [&](const char* comparison, const QString& value) {
        if (value.isEmpty()) return;
        values.push_back(value);
        clauses << QString("%1 $%2").arg(comparison).arg(values.size());
    };
    restrict("received_at >=", filter.since);
    restrict("received_at <", filter.until);
    restrict("type =", filter.type);
    restrict("app_id =", filter.app_id);
    const QString where = clauses.isEmpty() ? QString() : " WHERE " + clauses.join(" AND ");
    QString rest = tail;
    for (const database_value& value : tail_values) {
        values.push_back(value);
        rest = rest.arg("$" + QString::number(values.size()));
    }
    return db.read((head + where + " " + rest).toStdString(), values);
}

QString label_of(const std::string& value) {
    return value.empty() ? QString("(not given)") : QString::fromStdString(value);
}

// [value, count] pairs, the most frequent values first, then the rest as one "(other)".
QJsonArray ranked(const counts& values) {
    std::vector<std::pair<std::string, qint64>> sorted(values.begin(), values.end());
    std::sort(sorted.begin(), sorted.end(), [](const auto& a, const auto& b) {
        return a.second != b.second ? a.second > b.second : a.first < b.first;
    });
    QJsonArray out;
    qint64 other = 0;
    for (size_t i = 0; i < sorted.size(); ++i) {
        if (i < size_t(dashboard_queries::top_values))
            out.append(QJsonArray{label_of(sorted[i].first), sorted[i].second});
        else
            other += sorted[i].second;
    }
    if (other > 0) out.append(QJsonArray{"(other)", other});
    return out;
}

// Counts each line of a column holding a list.
void count_lines(counts& into, std::string_view lines) {
    if (lines.empty()) ++into[std::string()];
    while (!lines.empty()) {
        const size_t end = std::min(lines.find('\n'), lines.size());
        ++into[std::string(lines.substr(0, end))];
        lines.remove_prefix(std::min(end + 1, lines.size()));
    }
}

// Installed memory rounded up to a power of two GiB: machines report a little
// less than the size of their modules.
std::string memory_bucket(qint64 bytes) {
    if (bytes <= 0) return std::string();
    qint64 gib = 1;
    while (gib < 4096 && gib << 30 < bytes) gib *= 2;
    return std::to_string(gib) + " GiB";
}

QJsonArray numbers(const std::vector<qint64>& values) {
    QJsonArray out;
    for (qint64 value : values) out.append(value);
    return out;
}

QStringList lines_of(const QString& column) {
    return column.isEmpty() ? QStringList() : column.split('\n');
}

// A copy of filter for records of one type: empty when filter names another.
std::optional<dashboard_filter> only(const dashboard_filter& filter, const QString& type) {
    if (!filter.type.isEmpty() && filter.type != type) return std::nullopt;
    dashboard_filter narrowed = filter;
    narrowed.type = type;
    return narrowed;
}

// type -> day -> how many records, from rows of type and received_at.
// Counted here, where SQLite would sort every row to group them; a run of
// rows of one type and day, as the index gives them, costs no lookup.
std::map<QString, std::map<QString, qint64>> count_per_type_and_day(database_rows& rows) {
    std::map<QString, std::map<QString, qint64>> counts;
    std::string run_type, run_day;
    qint64* count = nullptr;
    while (rows.next()) {
        const std::string_view type = rows.view(0), day = rows.view(1).substr(0, 10);
        if (!count || type != run_type || day != run_day) {
            run_type = type;
            run_day = day;
            count = &counts[QString::fromStdString(run_type)][QString::fromStdString(run_day)];
        }
        ++*count;
    }
    return counts;
}

// The values of a column that most records have, 50 at most, for the page's filters.
QJsonArray most_frequent(collector_database& db, const char* column) {
    const std::string sql = std::string("SELECT ") + column + " FROM record_facts GROUP BY " +
                            column + " ORDER BY count(*) DESC LIMIT 50";
    const rows_of rows = db.read(sql, {});
    QJsonArray values;
    while (rows->next()) values.append(rows->text(0));
    return values;
}

}  // namespace

QJsonObject dashboard_queries::summary(const dashboard_filter& filter) {
    const auto per_type =
        count_per_type_and_day(*select(db_, filter, "SELECT type, received_at FROM record_facts"));
    std::map<QString, int> day_index;
    std::vector<std::pair<qint64, QString>> ranking;  // -total, type: the most records first
    for (const auto& [type, days] : per_type) {
        qint64 total = 0;
        for (const auto& [day, count] : days) {
            total += count;
            day_index[day] = 0;
        }
        ranking.emplace_back(-total, type);
    }
    std::sort(ranking.begin(), ranking.end());
    QJsonArray day_labels;
    for (auto& [day, index] : day_index) {
        index = day_labels.size();
        day_labels.append(day);
    }
    // The types with the most records, each with its count per day, then the rest as one.
    QJsonArray types;
    qint64 records = 0;
    qint64 other_total = 0;
    std::vector<qint64> other(day_index.size(), 0);
    for (size_t i = 0; i < ranking.size(); ++i) {
        const QString& type = ranking[i].second;
        std::vector<qint64> series(day_index.size(), 0);
        for (const auto& [day, count] : per_type.at(type)) series[day_index[day]] = count;
        records -= ranking[i].first;
        if (i < size_t(top_values)) {
            types.append(QJsonObject{
                {"type", type}, {"total", -ranking[i].first}, {"per_day", numbers(series)}});
            continue;
        }
        other_total -= ranking[i].first;
        for (size_t d = 0; d < series.size(); ++d) other[d] += series[d];
    }
    if (other_total > 0)
        types.append(
            QJsonObject{{"type", "(other)"}, {"total", other_total}, {"per_day", numbers(other)}});
    return {{"records", records},
            {"days", day_labels},
            {"types", types},
            {"known_types", most_frequent(db_, "type")},
            {"known_apps", most_frequent(db_, "app_id")}};
}

QJsonObject dashboard_queries::distributions(const dashboard_filter& filter) {
    dashboard_filter basis = filter;
    if (basis.type.isEmpty()) basis.type = "usage";
    static const char* const names[] = {"os",  "language", "resolution", "cpu",    "memory",
                                        "gpu", "version",  "model",      "modules"};
    std::vector<counts> facets(std::size(names));
    qint64 records = 0;
    const rows_of rows = select(db_, basis,
                                "SELECT os_name, language, resolution, cpu_model, memory_bytes, "
                                "gpu_models, software_ver, model_name, modules FROM record_facts");
    while (rows->next()) {
        ++records;
        for (int column : {0, 1, 2, 3, 6, 7}) ++facets[column][std::string(rows->view(column))];
        ++facets[4][memory_bucket(rows->integer(4))];
        count_lines(facets[5], rows->view(5));
        count_lines(facets[8], rows->view(8));
    }
    QJsonObject out{{"basis", basis.type}, {"records", records}};
    QJsonObject values;
    for (size_t i = 0; i < facets.size(); ++i) values[names[i]] = ranked(facets[i]);
    out["facets"] = values;
    QJsonArray scores;
    if (const auto scored = only(filter, "score")) {
        const rows_of score_rows = select(db_, *scored, "SELECT score, count(*) FROM record_facts",
                                          "GROUP BY score ORDER BY score");
        while (score_rows->next())
            if (!score_rows->is_null(0))
                scores.append(QJsonArray{score_rows->integer(0), score_rows->integer(1)});
    }
    out["scores"] = scores;
    return out;
}

QJsonObject dashboard_queries::records(const dashboard_filter& filter, int offset, int limit) {
    const rows_of count = select(db_, filter, "SELECT count(*) FROM record_facts");
    const qint64 total = count->next() ? count->integer(0) : 0;
    const rows_of rows =
        select(db_, filter,
               "SELECT id, received_at, type, app_id, software_ver, model_name FROM record_facts",
               "ORDER BY id DESC LIMIT %1 OFFSET %2", {qint64(limit), qint64(offset)});
    QJsonArray list;
    while (rows->next())
        list.append(QJsonObject{{"id", rows->integer(0)},
                                {"received_at", rows->text(1)},
                                {"type", rows->text(2)},
                                {"app_id", rows->text(3)},
                                {"software_version", rows->text(4)},
                                {"model", rows->text(5)}});
    return {{"total", total}, {"offset", offset}, {"records", list}};
}

bool dashboard_queries::record_body(qint64 id, std::string& body) {
    const rows_of row = db_.read("SELECT body FROM information WHERE id = $1", {id});
    if (!row->next()) return false;
    body = std::string(row->view(0));
    return true;
}

QJsonObject dashboard_queries::feedback(const dashboard_filter& filter, int limit) {
    QJsonArray list;
    if (const auto narrowed = only(filter, "feedback")) {
        const rows_of rows =
            select(db_, *narrowed,
                   "SELECT id, received_at, app_id, email, feedback, attachments FROM record_facts",
                   "ORDER BY id DESC LIMIT %1", {qint64(limit)});
        while (rows->next())
            list.append(
                QJsonObject{{"id", rows->integer(0)},
                            {"received_at", rows->text(1)},
                            {"app_id", rows->text(2)},
                            {"email", rows->text(3)},
                            {"text", rows->text(4)},
                            {"attachments", QJsonArray::fromStringList(lines_of(rows->text(5)))}});
    }
    return {{"feedback", list}};
}

QJsonObject dashboard_queries::files(const dashboard_filter& filter, int limit) {
    dashboard_filter any_type = filter;  // files have no type
    any_type.type.clear();
    const rows_of all = select(db_, any_type, "SELECT count(*), coalesce(sum(size), 0) FROM files");
    if (!all->next()) throw database_error("no count of the files");
    QJsonObject out{{"count", all->integer(0)}, {"bytes", all->integer(1)}};
    const rows_of rows =
        select(db_, any_type,
               "SELECT dfs_id, received_at, app_id, file_name, size, stored_path FROM files",
               "ORDER BY id DESC LIMIT %1", {qint64(limit)});
    QJsonArray list;
    while (rows->next()) {
        const QString stored = QFileInfo(rows->text(5)).fileName();
        list.append(QJsonObject{
            {"dfs_id", rows->text(0)},
            {"received_at", rows->text(1)},
            {"app_id", rows->text(2)},
            {"name", rows->text(3)},
            {"size", rows->integer(4)},
            {"download", "/dashboard/uploads/" + QString(QUrl::toPercentEncoding(stored))}});
    }
    out["files"] = list;
    return out;
}
