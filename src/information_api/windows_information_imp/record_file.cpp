#include "record_file.h"

#include <QFile>
#include <QFileInfo>
#include <QSettings>
#include <QVariant>

namespace TarvoConsumerScanner {
namespace information_api {

void write_record_file(const QString& path, const QByteArray& json, const QString& type) {
    QSettings record(path, QSettings::IniFormat);
    record.setValue("data", QVariant(json));
    record.setValue("type", type);
    record.sync();
}

namespace {

// A record is a usage document with its events, or a host's feedback text:
// kilobytes. A file a thousand times larger than any record is not read
// whole into memory (QSettings holds several copies of it).
constexpr qint64 max_record_file_size = 256 * 1024 * 1024;

// One string as QSettings writes it, in quotes when it holds a comma or
// another special character, with escapes inside. Outside escapes no quote
// and no comma may start another string or list element, and the string may
// start with '@' (which QSettings obeys) only as the byte array it writes.
bool single_string(const QByteArray& value, bool byte_array) {
    const bool quoted = value.startsWith('"');
    if (quoted && (value.size() < 2 || !value.endsWith('"'))) return false;
    const QByteArray text = quoted ? value.mid(1, value.size() - 2) : value;
    if (byte_array ? !text.startsWith("@ByteArray(") || !text.endsWith(')')
                   : text.startsWith('@') || text.startsWith('\\'))
        return false;
    for (int i = 0; i < text.size(); ++i) {
        if (text[i] == '\\')
            ++i;
        else if (text[i] == '"' || (text[i] == ',' && !quoted))
            return false;
    }
    return true;
}

}  // namespace

bool shaped_like_a_record(const QByteArray& ini) {
    for (QByteArray line : QByteArray(ini).replace('\r', '\n').split('\n')) {
        line = line.trimmed();
        if (line.isEmpty() || line == "[General]") continue;
        const QByteArray value = line.mid(5).trimmed();
        if (line.startsWith("type=") && single_string(value, false)) continue;
        if (line.startsWith("data=") && single_string(value, true)) continue;
        return false;
    }
    return true;
}

namespace {

// Whether an element of a value (or of a comma-separated list) can start at
// text[from], blanks skipped, with something that QSettings turns into
// another Qt type than text: '@' not followed by a name it keeps as text or a
// byte array, or an escape, which could make an '@' or vanish before one.
bool element_may_name_a_qt_type(const QByteArray& text, int from) {
    while (from < text.size() && (text[from] == ' ' || text[from] == '\t')) ++from;
    if (from >= text.size()) return false;
    if (text[from] == '\\') return true;
    if (text[from] != '@') return false;
    const QByteArray rest = text.mid(from + 1, 10);
    return !rest.startsWith('@') && !rest.startsWith("ByteArray(");
}

}  // namespace

bool safe_for_qsettings(const QByteArray& ini) {
    if (shaped_like_a_record(ini)) return true;
    // Elements start after a line's start, '=', ',' and '"' (a quoted part
    // may be empty). Looking after every one of them, also in keys,
    // comments and quoted texts, takes in more than QSettings parses.
    if (element_may_name_a_qt_type(ini, 0)) return false;
    for (int i = 0; i < ini.size(); ++i) {
        const char c = ini[i];
        if ((c == '\n' || c == '\r' || c == '=' || c == ',' || c == '"') &&
            element_may_name_a_qt_type(ini, i + 1))
            return false;
    }
    return true;
}

record_values read_record_values(const QString& path) {
    QFile file(path);
    if (!QFileInfo(path).isFile() || file.size() > max_record_file_size ||
        !file.open(QIODevice::ReadOnly) || !safe_for_qsettings(file.readAll()))
        return {};
    const QSettings record(path, QSettings::IniFormat);
    return {QString::fromUtf8(record.value("data").toByteArray()), record.value("type").toString()};
}

QString cut_module_file(const QString& path) {
    const int dash = path.lastIndexOf('-', -1, Qt::CaseSensitive);
    const int suffix = path.lastIndexOf("R550.ple", -1, Qt::CaseInsensitive);
    if (suffix - dash >= 2 && suffix >= 1 && dash >= 1)
        return path.left(dash + 1) + path.mid(suffix);
    return path;
}

}  // namespace information_api
}  // namespace TarvoConsumerScanner
