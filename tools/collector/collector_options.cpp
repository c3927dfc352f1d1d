#include "collector_options.h"

#include <arpa/inet.h>

#include <QCommandLineParser>
#include <QFileInfo>
#include <QRegularExpression>
#include <QUrl>
#include <boost/asio/ip/address.hpp>
#include <cstdio>
#include <limits>

#include "config_file.h"
#include "storage/collector_database.h"

namespace {

int usage_error(const QCommandLineParser& parser, const QString& why) {
    std::fprintf(stderr, "information_collector: %s\n\n%s", why.toLocal8Bit().constData(),
                 parser.helpText().toLocal8Bit().constData());
    return 2;
}

// A byte count with an optional K, M or G (powers of 1024); 0 when malformed.
quint64 parse_size(const QString& text) {
    const auto match =
        QRegularExpression("^(\\d{1,12})([KMG]?)$", QRegularExpression::CaseInsensitiveOption)
            .match(text);
    if (!match.hasMatch()) return 0;
    const int shift = 10 * (QString("KMG").indexOf(match.captured(2).toUpper()) + 1);
    const quint64 number = match.captured(1).toULongLong();
    return number > (std::numeric_limits<quint64>::max() >> shift) ? 0 : number << shift;
}

}  // namespace

int parse_options(const QStringList& arguments, collector_options& out) {
    QCommandLineParser parser;
    parser.setApplicationDescription(
        "A local stand-in for the information web service: accepts information and file "
        "uploads into an SQLite or PostgreSQL database, serves software descriptors and installer "
        "files.");
    parser.addHelpOption();
    const QCommandLineOption host({"H", "host"}, "Address to listen on (default 127.0.0.1).",
                                  "address", "127.0.0.1");
    const QCommandLineOption port(
        {"p", "port"}, "Port to listen on; 0 picks a free one (default 8080).", "port", "8080");
    const QCommandLineOption database(
        {"d", "database"},
        "SQLite file to store into (default collector.sqlite), or a PostgreSQL URI "
        "(postgresql://user@host/database; what it leaves out comes from the PG* variables).",
        "file or URI", "collector.sqlite");
    const QCommandLineOption passfile(
        "passfile",
        "libpq password file for a PostgreSQL --database (host:port:database:user:password "
        "lines, mode 0600), so that no password needs to be on the command line.",
        "file");
    const QCommandLineOption upload_dir("upload-dir",
                                        "Folder for uploaded files (default collector_files).",
                                        "folder", "collector_files");
    const QCommandLineOption software_dir("software-dir",
                                          "Folder with <id>/interface.json descriptors.", "folder");
    const QCommandLineOption files_dir("files-dir", "Folder served under /files/.", "folder");
    const QCommandLineOption app_id(
        "app-id", "Accepted X-Auth-AppID; repeat for several (default: the library's two).", "id");
    const QCommandLineOption cert("cert", "TLS certificate (PEM); serve HTTPS.", "file");
    const QCommandLineOption key("key", "TLS private key (PEM) for --cert.", "file");
    const QCommandLineOption max_body(
        "max-body", "Largest request body, in bytes or with K, M, G (default 4G).", "size", "4G");
    const QCommandLineOption timeout(
        "timeout", "Seconds a client may take per request and per wait (default 10).", "seconds",
        "10");
    const QCommandLineOption no_keep_alive("no-keep-alive",
                                           "Close every connection after one answer.");
    const QCommandLineOption idle_timeout(
        "idle-timeout", "Seconds a kept-alive connection waits for its next request (default 5).",
        "seconds", "5");
    const QCommandLineOption per_address(
        "connections-per-address", "Open connections one client address may hold (default 256).",
        "count", "256");
    const QCommandLineOption trust_proxy(
        "trust-proxy",
        "Address of a proxy in front of the collector: its X-Forwarded-For names the client. "
        "Repeat for several.",
        "address");
    const QList<QCommandLineOption> options = {
        host, port, database, passfile, upload_dir,    software_dir, files_dir,   app_id,
        cert, key,  max_body, timeout,  no_keep_alive, idle_timeout, per_address, trust_proxy};
    parser.addOptions(options);
    const QCommandLineOption config(
        "config",
        "Options from a file: \"key = value\" lines, the key being an option's long name; the "
        "command line wins.",
        "file");
    parser.addOption(config);

    if (!parser.parse(arguments)) return usage_error(parser, parser.errorText());
    if (parser.isSet("help")) {
        std::fputs(parser.helpText().toLocal8Bit().constData(), stdout);
        return 0;
    }
    if (parser.isSet(config)) {
        QString error;
        const QStringList with_file = with_config_file(
            parser.value(config), options, {"app-id", "trust-proxy"}, parser, arguments, error);
        if (with_file.isEmpty()) {
            std::fprintf(stderr, "information_collector: %s\n", error.toLocal8Bit().constData());
            return 2;
        }
        if (!parser.parse(with_file)) return usage_error(parser, parser.errorText());
    }
    if (!parser.positionalArguments().isEmpty())
        return usage_error(parser, "unexpected argument " + parser.positionalArguments().first());
    bool ok = false;
    out.port = parser.value(port).toInt(&ok);
    if (!ok || out.port < 0 || out.port > 65535)
        return usage_error(parser, "--port wants a number from 0 to 65535");
    connection_rules& rules = out.server.rules;
    for (const auto& [option, seconds] :
         {std::make_pair(&timeout, &rules.timeout), std::make_pair(&idle_timeout, &rules.idle)}) {
        const int value = parser.value(*option).toInt(&ok);
        if (!ok || value < 1 || value > 3600)
            return usage_error(parser, QString("--%1 wants a number of seconds from 1 to 3600")
                                           .arg(option->names().first()));
        *seconds = std::chrono::seconds(value);
    }
    rules.keep_alive = !parser.isSet(no_keep_alive);
    rules.per_address = parser.value(per_address).toUInt(&ok);
    if (!ok || rules.per_address < 1)
        return usage_error(parser, "--connections-per-address wants a number from 1");
    for (const QString& proxy : parser.values(trust_proxy)) {
        boost::system::error_code not_an_address;
        boost::asio::ip::make_address(proxy.toStdString(), not_an_address);
        if (not_an_address)
            return usage_error(parser, "--trust-proxy wants an IP address, not " + proxy);
        out.server.trusted_proxies.push_back(proxy.toStdString());
    }
    out.config.max_body = parse_size(parser.value(max_body));
    if (out.config.max_body == 0)
        return usage_error(parser, "--max-body wants a size such as 65536, 512K, 64M or 4G");
    out.host = parser.value(host);
    // Only this machine reaches a loopback address, but a browser on it may
    // be sent there by any page: the names it may ask for are loopback ones.
    if (is_loopback(out.host)) {
        const QString configured = out.host.contains(':') ? "[" + out.host + "]" : out.host;
        for (const QString& name :
             {QString("127.0.0.1"), QString("localhost"), QString("[::1]"), configured.toLower()})
            out.server.hosts.push_back(name.toStdString());
    }
    out.database = parser.value(database);
    if (parser.isSet(passfile)) {
        if (!collector_database::is_postgresql(out.database))
            return usage_error(parser, "--passfile goes with a PostgreSQL --database");
        out.database +=
            (out.database.contains('?') ? "&passfile=" : "?passfile=") +
            QUrl::toPercentEncoding(QFileInfo(parser.value(passfile)).absoluteFilePath());
    }
    out.cert = parser.value(cert);
    out.key = parser.value(key);
    if (out.cert.isEmpty() != out.key.isEmpty())
        return usage_error(parser, "--cert and --key go together");
    out.config.app_ids = parser.isSet(app_id) ? parser.values(app_id) : default_app_ids();
    out.config.upload_dir = QFileInfo(parser.value(upload_dir)).absoluteFilePath();
    for (const auto& folder : {std::make_pair(&software_dir, &out.config.software),
                               std::make_pair(&files_dir, &out.config.files)}) {
        if (!parser.isSet(*folder.first)) continue;
        *folder.second = served_folder(parser.value(*folder.first));
        if (!folder.second->is_set())
            return usage_error(
                parser, QString("--%1: %2 is not a folder")
                            .arg(folder.first->names().first(), parser.value(*folder.first)));
    }
    return -1;
}

bool is_loopback(const QString& host) {
    const QByteArray text = host.toLatin1();
    in_addr v4{};
    in6_addr v6{};
    if (inet_pton(AF_INET, text.constData(), &v4) == 1) return ntohl(v4.s_addr) >> 24 == 127;
    if (inet_pton(AF_INET6, text.constData(), &v6) == 1) return IN6_IS_ADDR_LOOPBACK(&v6);
    return host == "localhost";
}
