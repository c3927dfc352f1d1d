// The smallest useful host: start the library, write the session's usage
// record, list what is waiting for upload, and shut down.
#include <information_api/information_api.h>

#include <QApplication>
#include <QDateTime>
#include <cstdio>

namespace api = TarvoConsumerScanner::information_api;

int main(int argc, char** argv) {
    if (qEnvironmentVariableIsEmpty("DISPLAY")) qputenv("QT_QPA_PLATFORM", "offscreen");
    QApplication app(argc, argv);
    app.setProperty("start_time", QDateTime::currentDateTime());

    api::KeploInfoMgr* mgr = api::information_init();
    mgr->create_usage_info("example-R550.ple", "1.0.0", "example-model", "", 0);

    int enable = 0, interval = 0;
    QString address, app_id;
    mgr->get_upload_config(enable, interval, address, app_id);
    QStringList due, scores;
    mgr->list_due_records(due);
    mgr->list_score_files(scores);
    std::printf("upload %s every %d s to %s; %d record(s) due, %d score file(s)\n",
                enable ? "on" : "off", interval, qPrintable(address), int(due.size()),
                int(scores.size()));
    std::printf("release of an unknown connection: %d\n", api::release_connect(42));

    api::information_clean();
    return 0;
}
