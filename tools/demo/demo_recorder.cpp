// A small recording host for the demo: one session with the machine profile,
// then one event of every kind, written as record files into ./keploinfo/.
#include <information_api/information_api.h>

#include <QApplication>
#include <QDir>
#include <QStringList>
#include <QThread>
#include <cstdio>

namespace api = TarvoConsumerScanner::information_api;

namespace {

api::scan_description_t demo_scan() {
    api::scan_description_t scan;
    scan.module_file = "scanner-a1b2c3R550.ple";
    scan.model_name = "demo-scanner";
    scan.modular_name = "turntable";
    scan.software_version = "1.4.2";
    scan.start_on = "2026-11-23T09:00:00Z";
    scan.end_on = "2026-11-23T09:04:10Z";
    api::scan_step_t step;
    step.start_on = scan.start_on;
    step.end_on = "2026-11-23T09:02:00Z";
    step.classify = "object";
    step.turntable_steps = "16";
    step.hdr = "off";
    step.align_modes = QStringList{"feature", "marker"};
    step.module = "turntable-01";
    scan.steps = {step};
    scan.texture = "color";
    scan.total_points = "1250000";
    scan.point_distance = "0.25";
    scan.length = "120.5";
    scan.width = "80";
    scan.height = "45.25";
    scan.hand_held_point_gen_way = "auto";
    scan.mesh_type = "watertight";
    scan.file_name = "vase.ply";
    scan.modular_files = QStringList{"turntable-01.ple"};
    return scan;
}

// Record files are named by the second (scans by the millisecond), so two
// events within one second would share a file; a real session spreads them out.
void next_event() {
    std::fflush(stdout);
    QThread::sleep(1);
}

void show(const char* what, const QString& path) {
    std::printf("  %-12s %s\n", what, qPrintable(QDir::current().relativeFilePath(path)));
}

}  // namespace

int main(int argc, char** argv) {
    if (qEnvironmentVariableIsEmpty("DISPLAY")) qputenv("QT_QPA_PLATFORM", "offscreen");
    QApplication app(argc, argv);
    QApplication::setApplicationName("information_demo");

    api::KeploInfoMgr* mgr = api::information_init();
    std::printf("Machine profile of this session:\n");
    std::printf("  os=\"%s\" lang=%s screen=%s cpu=%s x \"%s\" memory=%s bytes\n",
                qPrintable(mgr->os_name), qPrintable(mgr->language), qPrintable(mgr->resolution),
                qPrintable(mgr->cpu_cores), qPrintable(mgr->cpu_model),
                qPrintable(mgr->memory_size));

    std::printf(
        "Recording a session, then a scan, a calibration, a share, a score and a "
        "feedback, a second apart:");
    mgr->create_usage_info("scanner-a1b2c3R550.ple", "1.4.2", "demo-scanner", "turntable", 1);
    std::printf("\n");
    next_event();
    mgr->record_scan(demo_scan(), 1);
    next_event();
    mgr->record_calibration({"turntable-01"}, "1.4.2", "scanner-a1b2c3R550.ple", "demo-scanner",
                            "turntable", {"turntable-01.ple"}, "2026-11-23T08:50:00Z",
                            "2026-11-23T08:55:00Z", {"camera"}, {"2026-11-23T08:50:00Z"},
                            {"2026-11-23T08:55:00Z"}, {"pass"}, 1);
    next_event();
    mgr->record_share("scanner-a1b2c3R550.ple", "demo-scanner", "turntable", "2026-11-23T09:05:00Z",
                      "2026-11-23T09:05:30Z", "gallery", "vase.ply", "demo@example.com", 1);
    next_event();
    mgr->record_score("9", "scanner-a1b2c3R550.ple", "1.4.2", "demo-scanner", "turntable", "art",
                      1);
    next_event();
    mgr->record_feedback("scanner-a1b2c3R550.ple", "1.4.2", "demo-scanner", "turntable",
                         {"turntable-01.ple"}, 1, "demo@example.com", "art", "Texture looks great.",
                         {"vase.png"});

    std::printf("Records written:\n");
    const QStringList names =
        QDir("keploinfo")
            .entryList({"*.info2", "*.score2"}, QDir::Files, QDir::Time | QDir::Reversed);
    for (const QString& name : names) {
        QString data, type;
        mgr->read_record_file("keploinfo/" + name, data, type);
        show(qPrintable(type), "keploinfo/" + name);
    }
    api::information_clean();
    return 0;
}
