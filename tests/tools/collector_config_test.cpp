// information_collector --config FILE: what the file's lines set, the command
// line winning, and the messages that stop the collector.
#include <gtest/gtest.h>

#include <QFile>

#include "collector_options.h"

namespace {

// The exit code (-1: the collector goes on), then the options taken or the
// first line printed.
QString outcome(int exit_code, const collector_options& o, const QString& said) {
    if (exit_code >= 0)
        return QString("%1 %2").arg(exit_code).arg(said.section('\n', 0, 0).section(": ", 1));
    return QString("-1 %1:%2 %3 %4 keep-alive=%5 %6")
        .arg(o.host, QString::number(o.port), o.database, o.config.app_ids.join(','),
             QString::number(o.server.rules.keep_alive), QString::number(o.config.max_body));
}

TEST(collector_config_file, sets_every_option_the_command_line_winning_or_names_the_line) {
    const char* const all =
        "# a comment\n\n  host = 127.0.0.2  \r\nport=9000\napp-id = one\napp-id = two\n"
        "database = postgresql://u@h/d?sslmode=require\npassfile = /etc/pg pass\n"
        "no-keep-alive = true\nmax-body = 1K\n";
    // The file's text, the arguments after it, and the outcome.
    const std::vector<std::vector<QString>> rows = {
        {all, "",
         "-1 127.0.0.2:9000 postgresql://u@h/d?sslmode=require&passfile=%2Fetc%2Fpg%20pass "
         "one,two keep-alive=0 1024"},
        {all, "--port 7000 --app-id three -d postgresql:///x",
         "-1 127.0.0.2:7000 postgresql:///x?passfile=%2Fetc%2Fpg%20pass three keep-alive=0 1024"},
        {"no-keep-alive = false\napp-id = x\n", "",
         "-1 127.0.0.1:8080 collector.sqlite x keep-alive=1 4294967296"},
        {"port = 1\n[section]\n", "", "2 collector.conf:2: not a \"key = value\" line"},
        {"database postgresql://u:pw@h/d", "", "2 collector.conf:1: not a \"key = value\" line"},
        {"prot = 1\n", "", "2 collector.conf:1: unknown key \"prot\""},
        {"port = 1\n\nport = 2\n", "", "2 collector.conf:3: port is set twice (first on line 1)"},
        {"no-keep-alive = yes\n", "", "2 collector.conf:1: no-keep-alive is either true or false"},
        {"trust-proxy = 10.0.0.2\ntrust-proxy = ::1\nidle-timeout = 60\n", "",
         "-1 127.0.0.1:8080 collector.sqlite 3c1f9a7e55d04b28a6e2f0b9d4c87a13,"
         "a94e07b3c2d851f6e0b7a4c39d2f6e58 keep-alive=1 4294967296"},
        {"trust-proxy = proxy.example\n", "",
         "2 --trust-proxy wants an IP address, not proxy.example"},
        {"passfile = pgpass\n", "", "2 --passfile goes with a PostgreSQL --database"},
        {"", "--config absent.conf",
         "2 cannot read the config file absent.conf: No such file or directory"}};
    for (const auto& row : rows) {
        QFile file("collector.conf");
        ASSERT_TRUE(file.open(QIODevice::WriteOnly) && file.write(row[0].toUtf8()) >= 0);
        file.close();
        collector_options options;
        testing::internal::CaptureStderr();
        const int exit_code =
            parse_options(QStringList{"information_collector", "--config", "collector.conf"} +
                              row[1].split(' ', Qt::SkipEmptyParts),
                          options);
        const QString said = QString::fromStdString(testing::internal::GetCapturedStderr());
        EXPECT_EQ(outcome(exit_code, options, said).toStdString(), row[2].toStdString());
    }
}

}  // namespace
