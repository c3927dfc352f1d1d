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
// text.
bool shaped_like_a_record(const QByteArray& ini);

// Whether QSettings may read an INI text. It rebuilds any value that starts
// with '@' (also after unescaping, in quotes or in a comma-separated list)
// into the Qt type it names, and some of those crash the process when they
// are malformed; a text is safe when it is shaped like a record, or when no
// value of it can start with '@' other than as a byte array or an escaped
// '@' ("@@"), nor with an escape that could make one.
bool safe_for_qsettings(const QByteArray& ini);

// "data" and "type" as an existing file gives them when it is opened as INI
// settings. Files that QSettings must not read (see above), that are no
// regular file (a folder, a device, a pipe that would never end) or that are
// larger than any record give both empty.
struct record_values {
    QString data;
    QString type;
};
record_values read_record_values(const QString& path);

// Applies the module-file cut: the text between the last '-' and a trailing
// "R550.ple" (any case) is removed, so "x-abc123R550.ple" becomes "x-R550.ple".
QString cut_module_file(const QString& path);

}  // namespace information_api
}  // namespace TarvoConsumerScanner
