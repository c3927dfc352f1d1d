#pragma once

#include <QByteArray>
#include <QString>

namespace TarvoConsumerScanner {
namespace information_api {

// Record files are INI files with two top-level keys: "data" (the record's
// JSON document, stored as a byte array) and "type" (the record kind).
void write_record_file(const QString& path, const QByteArray& json, const QString& type);

// Whether an INI text is shaped like a record the library writes, and no
// more: a [General] section with "data" as a byte array and "type" as plain
// text. QSettings rebuilds any value that starts with '@' (also after
// unescaping, in quotes or in a comma-separated list) into the Qt type it
// names, so a text of any other shape must not be read with it.
bool shaped_like_a_record(const QByteArray& ini);

// Applies the module-file cut: the text between the last '-' and a trailing
// "R550.ple" (any case) is removed, so "x-abc123R550.ple" becomes "x-R550.ple".
QString cut_module_file(const QString& path);

}  // namespace information_api
}  // namespace TarvoConsumerScanner
