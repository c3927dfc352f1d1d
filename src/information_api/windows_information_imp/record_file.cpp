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

// A record is a usage document with its events: kilobytes. A larger file is
// not one of the library's records, and is not read whole into memory.
constexpr qint64 max_record_file_size = 16 * 1024 * 1024;

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

bool safe_for_qsettings(const QByteArray& ini) {
    if (shaped_like_a_record(ini)) return true;
    if (ini.contains('@')) return false;
    // "\x40" and "\100" unescape to '@'; any hex or octal escape is taken as one.
    for (int i = ini.indexOf('\\'); i >= 0 && i + 1 < ini.size(); i = ini.indexOf('\\', i + 1)) {
        const char next = ini[i + 1];
        if (next == 'x' || (next >= '0' && next <= '7')) return false;
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
