#include "record_file.h"

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

QString cut_module_file(const QString& path) {
    const int dash = path.lastIndexOf('-', -1, Qt::CaseSensitive);
    const int suffix = path.lastIndexOf("R550.ple", -1, Qt::CaseInsensitive);
    if (suffix - dash >= 2 && suffix >= 1 && dash >= 1)
        return path.left(dash + 1) + path.mid(suffix);
    return path;
}

}  // namespace information_api
}  // namespace TarvoConsumerScanner
