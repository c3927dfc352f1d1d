#include "config_file.h"

#include <QFile>
#include <QHash>
#include <QRegularExpression>

namespace {

// Far more than any config file; reading stops there, also on a device.
const qint64 largest_file = 1 << 20;

QString long_name(const QCommandLineOption& option) {
    for (const QString& name : option.names())
        if (name.size() > 1) return name;
    return {};
}

}  // namespace

QStringList with_config_file(const QString& path, const QList<QCommandLineOption>& options,
                             const QStringList& repeatable, const QCommandLineParser& command_line,
                             const QStringList& arguments, QString& error) {
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly | QIODevice::Text)) {
        error = QString("cannot read the config file %1: %2").arg(path, file.errorString());
        return {};
    }
    const QByteArray text = file.read(largest_file + 1);
    if (text.size() > largest_file) {
        error = QString("%1 is larger than 1 MiB: not a config file").arg(path);
        return {};
    }
    QHash<QString, const QCommandLineOption*> by_key;
    for (const QCommandLineOption& option : options) by_key.insert(long_name(option), &option);
    // Lines are never quoted in a message: a malformed one may hold a password.
    const QRegularExpression key_shape("^[a-z0-9][a-z0-9-]*$");
    QHash<QString, int> first_line;
    QStringList from_file;
    int number = 0;
    const auto fail = [&](const QString& why) {
        error = QString("%1:%2: %3").arg(path).arg(number).arg(why);
        return QStringList();
    };
    for (const QByteArray& raw : text.split('\n')) {
        ++number;
        const QString line = QString::fromUtf8(raw).trimmed();
        if (line.isEmpty() || line.startsWith('#')) continue;
        const int equals = line.indexOf('=');
        const QString key = line.left(equals).trimmed(), value = line.mid(equals + 1).trimmed();
        if (equals < 0 || !key_shape.match(key).hasMatch())
            return fail("not a \"key = value\" line");
        const auto option = by_key.constFind(key);
        if (option == by_key.constEnd()) return fail("unknown key \"" + key + "\"");
        if (first_line.contains(key) && !repeatable.contains(key))
            return fail(
                QString("%1 is set twice (first on line %2)").arg(key).arg(first_line[key]));
        first_line.insert(key, first_line.value(key, number));
        if (value.isEmpty()) return fail(key + " has no value");
        const bool is_switch = (*option)->valueName().isEmpty();
        if (is_switch && value != "true" && value != "false")
            return fail(key + " is either true or false");
        if (command_line.isSet(key) || (is_switch && value == "false")) continue;
        from_file << (is_switch ? "--" + key : "--" + key + "=" + value);
    }
    return arguments.mid(0, 1) + from_file + arguments.mid(1);
}
