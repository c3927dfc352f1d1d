#include "storage/collector_database.h"

#include <QRegularExpression>

#include "storage/postgres_database.h"
#include "storage/sqlite_database.h"

std::unique_ptr<collector_database> collector_database::open(const QString& name) {
    if (is_postgresql(name)) return std::make_unique<postgres_database>(name.toStdString());
    return std::make_unique<sqlite_database>(name);
}

namespace {

bool stored(const std::function<void()>& insert, QString& error) {
    try {
        insert();
        return true;
    } catch (const database_error& e) {
        error = QString::fromUtf8(e.what());
        return false;
    }
}

}  // namespace

bool collector_database::add_information(const information_row& row, QString& error) {
    return stored([&] { insert(row); }, error);
}

bool collector_database::add_file(const file_row& row, QString& error) {
    return stored([&] { insert(row); }, error);
}

bool collector_database::is_postgresql(const QString& name) {
    return name.startsWith("postgresql://") || name.startsWith("postgres://");
}

QString collector_database::without_password(QString name) {
    if (!is_postgresql(name)) return name;
    name.replace(QRegularExpression("^(postgres(ql)?://[^:@/]*):[^@/]*@"), "\\1:(password)@");
    return name.replace(QRegularExpression("([?&]password=)[^&]*"), "\\1(password)");
}

const char* const collector_database::facts_columns =
    "received_at, app_id, type, software_ver, model_name, os_name, language, resolution, "
    "cpu_model, memory_bytes, gpu_models, modules, score, email, feedback, attachments";

const std::string collector_database::insert_facts_sql =
    std::string("INSERT INTO record_facts (") + facts_columns +
    ", id) VALUES ($1, $2, $3, $4, $5, $6, $7, $8, $9, $10, $11, $12, $13, $14, $15, $16, $17)";

const char* const collector_database::insert_file_sql =
    "INSERT INTO files (dfs_id, received_at, app_id, category, bucket, file_name, size, "
    "stored_path) VALUES ($1, $2, $3, $4, $5, $6, $7, $8)";

std::vector<database_value> collector_database::values_of(const information_row& row) {
    const record_facts& facts = row.facts;
    return {row.received_at,
            row.app_id,
            row.type,
            facts.software_version,
            facts.model_name,
            facts.os_name,
            facts.language,
            facts.resolution,
            facts.cpu_model,
            facts.memory_bytes,
            joined(facts.gpu_models),
            joined(facts.modules),
            facts.score ? database_value(*facts.score) : database_value(nullptr),
            facts.email,
            facts.feedback,
            joined(facts.attachments),
            row.body};
}

std::vector<database_value> collector_database::values_of(const file_row& row) {
    return {row.dfs_id, row.received_at, row.app_id, row.category,
            row.bucket, row.file_name,   row.size,   row.stored_path};
}

void collector_database::check_version(qint64 stored_version) {
    if (stored_version > schema_version)
        throw database_error("its tables were laid out by a newer collector (schema version " +
                             std::to_string(stored_version) + ")");
}

// One record at a time, by id: a body may be as large as 16 MiB.
int collector_database::add_missing_facts(const query_function& query) {
    std::vector<qint64> missing;
    for (auto ids = query("SELECT i.id FROM information i LEFT JOIN record_facts f "
                          "ON f.id = i.id WHERE f.id IS NULL ORDER BY i.id",
                          {});
         ids->next();)
        missing.push_back(ids->integer(0));
    for (const qint64 id : missing) {
        std::vector<database_value> values;
        {
            const auto stored = query(
                "SELECT received_at, app_id, type, body FROM information WHERE id = $1", {id});
            if (!stored->next()) continue;
            const std::string_view body = stored->view(3);
            values = values_of(information_row{
                stored->text(0), stored->text(1), stored->text(2), QString(),
                facts_of_body(QByteArray::fromRawData(body.data(), int(body.size())))});
        }
        values.back() = id;  // $17, in place of the body
        query(insert_facts_sql.c_str(), values)->next();
    }
    return int(missing.size());
}
