#pragma once

#include <QByteArray>
#include <QString>

namespace TarvoConsumerScanner {
namespace information_api {

// Record files are INI files with two top-level keys: "data" (the record's
// JSON document, stored as a byte array) and "type" (the record kind).
void write_record_file(const QString& path, const QByteArray& json, const QString& type);

// Applies the module-file cut: the text between the last '-' and a trailing
// "R550.ple" (any case) is removed, so "x-abc123R550.ple" becomes "x-R550.ple".
QString cut_module_file(const QString& path);

}  // namespace information_api
}  // namespace TarvoConsumerScanner
