#pragma once

#include <QByteArray>
#include <QJsonObject>
#include <QString>
#include <QStringList>
#include <optional>

// What the dashboard shows of one record, taken from its JSON once, when the
// record arrives (or when an older database is opened), so that none of the
// dashboard's answers parses records. Texts are cut to a length a chart label
// or a list can show; a value of another JSON type than expected counts as
// not given.
struct record_facts {
    QString software_version;  // "softwareVer"
    QString model_name;        // "modelName": the scanner model
    QString os_name;           // "osSoftExt": "osName", "lang", "resolution"
    QString language;
    QString resolution;
    QString cpu_model;            // "osHdExt": the first "cpu" entry's "cpuModel"
    qint64 memory_bytes = 0;      // "osHdExt" "memSize"; 0 when not given
    QStringList gpu_models;       // "osHdExt" "gpu" entries' "gpuModel"
    QStringList modules;          // "modularExt" "modular" entries: "mple", else "name"
    std::optional<qint64> score;  // "content" "score" (score records)
    QString email;                // "content" "email", "content", "attachs" (feedback)
    QString feedback;
    QStringList attachments;
};

record_facts facts_of(const QJsonObject& record);

// The facts of a stored body, which an older collector may have accepted
// without the checks uploads now pass: a body that nests too deep, repeats a
// name over an array or object (which Qt's parser would leak) or is no JSON
// object gives no facts.
record_facts facts_of_body(const QByteArray& body);

// Values of a list are kept in one column, one a line.
QString joined(const QStringList& values);
