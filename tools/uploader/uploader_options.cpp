#include "uploader_options.h"

#include <QCommandLineParser>
#include <QDir>
#include <QFileInfo>
#include <QRegularExpression>
#include <QSslCertificate>

namespace uploader {

namespace {

struct command_shape {
    const char* name;
    int arguments;
    const char* synopsis;
};

// In the order the help lists them.
const command_shape commands[] = {
    {"upload", 0, "upload                 send the due records (the default)"},
    {"descriptor", 1, "descriptor SOFTWARE    print the software's descriptor"},
    {"send-file", 1, "send-file PATH         upload a file, print its stored id"},
    {"download", 2, "download URL PATH      download a file, check it, move it to PATH"},
    {"status", 0, "status                 show configuration and record counts"},
};

const command_shape* find_command(const QString& name) {
    for (const command_shape& shape : commands)
        if (name == shape.name) return &shape;
    return nullptr;
}

}  // namespace

parse_result parse_command_line(const QStringList& arguments, uploader_options& out) {
    QCommandLineParser parser;
    QString description =
        "Sends the records of a host's ./keploinfo/ folder to the information service and "
        "runs the library's other requests from the command line.\n\nCommands:";
    for (const command_shape& shape : commands) description += QString("\n  ") + shape.synopsis;
    description +=
        "\n\nExit codes: 0 done (every record sent), 1 something failed or records were kept, "
        "2 bad arguments.";
    parser.setApplicationDescription(description);
    parser.addHelpOption();
    parser.addPositionalArgument("command",
                                 "upload (default), descriptor, send-file, download "
                                 "or status, with its arguments.",
                                 "[command [arguments...]]");
    const QCommandLineOption workdir(
        {"w", "workdir"},
        "The host's working folder, holding res/system.ini, url_config.ini and "
        "keploinfo/ (default: the current folder).",
        "folder");
    const QCommandLineOption force({"f", "force"},
                                   "upload: send even when uploading is "
                                   "switched off in res/system.ini.");
    const QCommandLineOption dry_run({"n", "dry-run"},
                                     "upload: only list what would be sent; change nothing.");
    const QCommandLineOption watch("watch",
                                   "upload: repeat every configured interval "
                                   "(\"time_intval\", seconds) until interrupted.");
    const QCommandLineOption parallel({"j", "parallel"},
                                      "upload: requests in flight at once (default 8).", "N", "8");
    const QCommandLineOption upload_url(
        "upload-url", "Information-upload address instead of the configured one.", "url");
    const QCommandLineOption file_url("file-url", "File-upload address instead of the library's.",
                                      "url");
    const QCommandLineOption cdn_url("cdn-url",
                                     "Descriptor base address instead of the "
                                     "library's.",
                                     "url");
    const QCommandLineOption sha256("sha256", "download: the file's SHA-256, in hex.", "hex");
    const QCommandLineOption size("size", "download: the file's size in bytes.", "bytes");
    const QCommandLineOption verify_tls(
        "verify-tls", "Verify HTTPS servers against the system's trusted certificates.");
    const QCommandLineOption ca_file(
        "ca-file", "Also trust the PEM certificates in this file (implies --verify-tls).", "file");
    const QCommandLineOption verbose({"v", "verbose"},
                                     "Show the library's own log lines on standard error.");
    parser.addOptions({workdir, force, dry_run, watch, parallel, upload_url, file_url, cdn_url,
                       sha256, size, verify_tls, ca_file, verbose});

    auto bad = [&parser](const QString& why) {
        return parse_result{parse_result::bad, why + "\n\n" + parser.helpText()};
    };
    if (!parser.parse(arguments)) return bad(parser.errorText());
    if (parser.isSet("help")) return parse_result{parse_result::help, parser.helpText()};

    QStringList positional = parser.positionalArguments();
    if (!positional.isEmpty()) out.command = positional.takeFirst();
    const command_shape* shape = find_command(out.command);
    if (!shape) return bad("unknown command " + out.command);
    if (positional.size() != shape->arguments)
        return bad(QString("%1 takes %2 argument(s): %3")
                       .arg(out.command)
                       .arg(shape->arguments)
                       .arg(QString(shape->synopsis).section("  ", 0, 0)));
    out.arguments = positional;

    out.force = parser.isSet(force);
    out.dry_run = parser.isSet(dry_run);
    out.watch = parser.isSet(watch);
    out.verbose = parser.isSet(verbose);
    bool number = false;
    if (out.command != "upload") {
        for (const QCommandLineOption* option : {&force, &dry_run, &watch, &parallel})
            if (parser.isSet(*option))
                return bad(QString("--%1 applies to upload only").arg(option->names().last()));
    }
    if (out.command != "download") {
        for (const QCommandLineOption* option : {&sha256, &size})
            if (parser.isSet(*option))
                return bad(QString("--%1 applies to download only").arg(option->names().last()));
    }
    if (out.watch && out.dry_run) return bad("--watch and --dry-run do not go together");
    if (parser.isSet(sha256)) {
        out.sha256 = parser.value(sha256).toLower().toLatin1();
        if (!QRegularExpression("^[0-9a-f]{64}$").match(QString(out.sha256)).hasMatch())
            return bad("--sha256 wants 64 hexadecimal digits");
    }
    if (parser.isSet(size)) {
        out.size = parser.value(size).toLongLong(&number);
        if (!number || out.size < 0) return bad("--size wants a number of bytes");
    }
    out.verify_tls = parser.isSet(verify_tls) || parser.isSet(ca_file);
    if (parser.isSet(ca_file)) {
        const QFileInfo file(parser.value(ca_file));
        if (QSslCertificate::fromPath(file.absoluteFilePath(), QSsl::Pem,
                                      QSslCertificate::PatternSyntax::FixedString)
                .isEmpty())
            return bad("--ca-file: " + file.filePath() + " holds no PEM certificate");
        out.ca_file = file.absoluteFilePath();
    }
    out.parallel = parser.value(parallel).toInt(&number);
    if (!number || out.parallel < 1 || out.parallel > 64)
        return bad("--parallel wants a number from 1 to 64");

    const QFileInfo folder(parser.isSet(workdir) ? parser.value(workdir) : QDir::currentPath());
    if (!folder.isDir()) return bad("--workdir: " + folder.filePath() + " is not a folder");
    out.workdir = folder.absoluteFilePath();

    out.upload_url = parser.value(upload_url);
    out.file_url = parser.value(file_url);
    out.cdn_url = parser.value(cdn_url);
    // The library appends "/software/..." to the CDN base as it is.
    while (out.cdn_url.endsWith('/')) out.cdn_url.chop(1);
    return parse_result{};
}

}  // namespace uploader
