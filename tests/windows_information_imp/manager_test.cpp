#include <QJsonDocument>
#include <QJsonObject>
#include <QRegularExpression>

#include "store_test_fixture.h"

namespace test_support {
namespace {

const QRegularExpression utc_stamp("^\\d{4}-\\d\\d-\\d\\dT\\d\\d:\\d\\d:\\d\\dZ$");

QDateTime from_utc_stamp(const QString& stamp) {
    QDateTime time = QDateTime::fromString(stamp, "yyyy-MM-ddThh:mm:ssZ");
    time.setTimeSpec(Qt::UTC);
    return time;
}

// A manager with nothing behind its operations, to copy the session record
// on its own.
class bare_manager : public api::KeploInfoMgr {
public:
    void record_scan(const api::scan_description_t&, int) override {}
    void record_calibration(const QStringList&, const QString&, const QString&, const QString&,
                            const QString&, const QStringList&, const QString&, const QString&,
                            const QStringList&, const QStringList&, const QStringList&,
                            const QStringList&, int) override {}
    void record_share(const QString&, const QString&, const QString&, const QString&,
                      const QString&, const QString&, const QString&, const QString&,
                      int) override {}
    void create_usage_info(const QString&, const QString&, const QString&, const QString&,
                           int) override {}
    QString record_score(const QString&, const QString&, const QString&, const QString&,
                         const QString&, const QString&, int) override {
        return QString();
    }
    QString record_feedback(const QString&, const QString&, const QString&, const QString&,
                            const QStringList&, int, const QString&, const QString&, const QString&,
                            const QStringList&) override {
        return QString();
    }
    void delete_old_records() override {}
    int list_due_records(QStringList&) override { return 0; }
    int get_connect_time() override { return 0; }
    void set_ple_file(const QString&) override {}
    void reserved_10() override {}
    void get_upload_config(int&, int&, QString&, QString&) override {}
    int read_record_file(const QString&, QString&, QString&) override { return -1; }
    void list_score_files(QStringList&) override {}
    void get_cdn_url(QString&) override {}
    void set_upload_urls(const QString&, const QString&) override {}
    void reserved_16() override {}
    void get_file_upload_url(QString&) override {}
    void set_file_upload_urls(const QString&, const QString&) override {}
};

// Every member of the session record set to a value of its own; seed tells
// two fillings apart.
void fill_members(api::KeploInfoMgr& m, const QString& seed) {
    m.start_time = QDateTime(QDate(2024, 5, 1), QTime(8, 0)).addDays(seed.size());
    m.model_name = seed + "model";
    m.serial_number = seed + "serial";
    m.software_name = seed + "software";
    m.software_version = seed + "version";
    m.spare_text = seed + "spare";
    m.start_on = seed + "start";
    m.end_on = seed + "end";
    m.os_name = seed + "os";
    m.language = seed + "lang";
    m.resolution = seed + "resolution";
    m.spare_text_2 = seed + "spare2";
    m.install_path = seed + "install";
    m.browser_name = seed + "browser";
    m.browser_version = seed + "browser version";
    m.cpu_cores = seed + "cores";
    m.cpu_model = seed + "cpu";
    m.memory_size = seed + "memory";
    m.gpu_models = QStringList{seed + "gpu", "second gpu"};
    m.gpu_memory_sizes = QStringList{seed + "gpu memory", "1"};
    m.disk_size = seed + "disk";
    m.disk_free_size = seed + "free";
    m.module_file = seed + "ple";
    m.modular_name = seed + "modular";
    m.modular_files = QStringList{seed + "modular file"};
    m.enable_guide = seed.size() + 1;
}

void expect_same_members(const api::KeploInfoMgr& a, const api::KeploInfoMgr& b) {
    EXPECT_EQ(a.start_time, b.start_time);
    EXPECT_EQ(a.model_name, b.model_name);
    EXPECT_EQ(a.serial_number, b.serial_number);
    EXPECT_EQ(a.software_name, b.software_name);
    EXPECT_EQ(a.software_version, b.software_version);
    EXPECT_EQ(a.spare_text, b.spare_text);
    EXPECT_EQ(a.start_on, b.start_on);
    EXPECT_EQ(a.end_on, b.end_on);
    EXPECT_EQ(a.os_name, b.os_name);
    EXPECT_EQ(a.language, b.language);
    EXPECT_EQ(a.resolution, b.resolution);
    EXPECT_EQ(a.spare_text_2, b.spare_text_2);
    EXPECT_EQ(a.install_path, b.install_path);
    EXPECT_EQ(a.browser_name, b.browser_name);
    EXPECT_EQ(a.browser_version, b.browser_version);
    EXPECT_EQ(a.cpu_cores, b.cpu_cores);
    EXPECT_EQ(a.cpu_model, b.cpu_model);
    EXPECT_EQ(a.memory_size, b.memory_size);
    EXPECT_EQ(a.gpu_models, b.gpu_models);
    EXPECT_EQ(a.gpu_memory_sizes, b.gpu_memory_sizes);
    EXPECT_EQ(a.disk_size, b.disk_size);
    EXPECT_EQ(a.disk_free_size, b.disk_free_size);
    EXPECT_EQ(a.module_file, b.module_file);
    EXPECT_EQ(a.modular_name, b.modular_name);
    EXPECT_EQ(a.modular_files, b.modular_files);
    EXPECT_EQ(a.enable_guide, b.enable_guide);
}

// Stands in for create_usage_info: a usage record at a known path.
class manager_with_usage_record : public api::windows_information_imp {
public:
    manager_with_usage_record(const QString& path, const QJsonObject& document) {
        usage_file_path_ = path;
        usage_document_ = document;
    }
};

// --- Construction ----------------------------------------------------------

TEST_F(store_test, the_uploader_gets_a_manager_without_session_data) {
    auto manager = make_manager();

    EXPECT_TRUE(manager->start_time.isNull());
    EXPECT_TRUE(manager->start_on.isEmpty());
    EXPECT_TRUE(manager->end_on.isEmpty());
    for (const QString* member :
         {&manager->os_name, &manager->language, &manager->resolution, &manager->install_path,
          &manager->disk_size, &manager->disk_free_size, &manager->cpu_cores, &manager->cpu_model,
          &manager->memory_size, &manager->browser_name, &manager->browser_version,
          &manager->model_name, &manager->serial_number, &manager->software_version,
          &manager->module_file, &manager->modular_name})
        EXPECT_TRUE(member->isEmpty()) << member->toStdString();
    EXPECT_TRUE(manager->gpu_models.isEmpty());
    EXPECT_TRUE(manager->gpu_memory_sizes.isEmpty());
    EXPECT_TRUE(manager->modular_files.isEmpty());
    EXPECT_EQ(manager->software_name, "keplo-express-software");
    EXPECT_EQ(manager->enable_guide, 0);
    EXPECT_TRUE(manager->modern_os());
    EXPECT_TRUE(manager->usage_file_path().isEmpty());
    EXPECT_TRUE(manager->usage_document().isEmpty());
    EXPECT_TRUE(QFileInfo("keploinfo").isDir());
}

TEST_F(store_test, any_other_application_starts_a_session) {
    QCoreApplication::setApplicationName("scanner");
    const QDateTime before = now_in_seconds();
    auto manager = make_manager();
    const QDateTime after = QDateTime::currentDateTime();

    EXPECT_TRUE(utc_stamp.match(manager->start_on).hasMatch()) << manager->start_on.toStdString();
    EXPECT_EQ(manager->end_on, manager->start_on);
    EXPECT_EQ(manager->start_time.timeSpec(), Qt::LocalTime);
    EXPECT_GE(manager->start_time, before);
    EXPECT_LE(manager->start_time, after);
    EXPECT_LE(qAbs(from_utc_stamp(manager->start_on).secsTo(manager->start_time)), 1);
    EXPECT_EQ(manager->software_name, "keplo-express-software");
    EXPECT_EQ(manager->enable_guide, 0);
}

TEST_F(store_test, an_existing_record_folder_is_kept) {
    const QString kept = write_record("kept.info2", days_ago(1));
    auto manager = make_manager();
    EXPECT_TRUE(QFileInfo::exists(kept));
}

// --- The module file -------------------------------------------------------

TEST_F(store_test, set_ple_file_cuts_the_text_between_the_last_dash_and_the_suffix) {
    auto manager = make_manager();
    const auto module_file_of = [&](const QString& path) {
        manager->set_ple_file(path);
        return manager->module_file;
    };

    EXPECT_EQ(module_file_of("C:/ple/x-abc123R550.ple"), "C:/ple/x-R550.ple");
    EXPECT_EQ(module_file_of("x-abc123r550.PLE"), "x-r550.PLE");
    EXPECT_EQ(module_file_of("a-1R550.ple/b-c-2R550.ple"), "a-1R550.ple/b-c-R550.ple");
    // Kept as given.
    EXPECT_EQ(module_file_of("R550.ple"), "R550.ple");
    EXPECT_EQ(module_file_of("abc123R550.ple"), "abc123R550.ple");
    EXPECT_EQ(module_file_of("x-R550.ple"), "x-R550.ple");            // dash right before
    EXPECT_EQ(module_file_of("-abcR550.ple"), "-abcR550.ple");        // dash first
    EXPECT_EQ(module_file_of("x-abcR550.ple-2"), "x-abcR550.ple-2");  // dash after
    EXPECT_EQ(module_file_of("x-abc.ple"), "x-abc.ple");
    EXPECT_EQ(module_file_of(""), "");
}

TEST_F(store_test, the_reserved_operations_do_nothing) {
    auto manager = make_manager();
    fill_members(*manager, "before");
    bare_manager snapshot;
    static_cast<api::KeploInfoMgr&>(snapshot) = *manager;

    api::KeploInfoMgr& through_interface = *manager;
    through_interface.reserved_10();
    through_interface.reserved_16();

    expect_same_members(*manager, snapshot);
    EXPECT_TRUE(record_names().isEmpty());
}

// --- Copying ---------------------------------------------------------------

TEST_F(store_test, copying_a_manager_copies_every_member) {
    bare_manager original;
    fill_members(original, "original");

    const bare_manager copied(original);
    expect_same_members(copied, original);

    bare_manager assigned;
    fill_members(assigned, "other");
    assigned = original;
    expect_same_members(assigned, original);
}

TEST_F(store_test, assigning_through_the_interface_copies_the_session_record) {
    auto source = make_manager();
    auto target = make_manager();
    fill_members(*source, "source");

    static_cast<api::KeploInfoMgr&>(*target) = *source;

    expect_same_members(*target, *source);
}

// --- Destruction -----------------------------------------------------------

TEST_F(store_test, destruction_rewrites_the_usage_file_with_a_new_end) {
    const QString path = QFileInfo("keploinfo/2024-05-01T08-00-00.info2").absoluteFilePath();
    QJsonObject document;
    document["startOn"] = "2024-05-01T08:00:00Z";
    document["endOn"] = "2024-05-01T08:00:00Z";
    document["modelName"] = "KS-100";
    auto manager = std::make_unique<manager_with_usage_record>(path, document);
    api::write_record_file(path, "{}", "stale");

    const QDateTime before = now_in_seconds().toUTC();
    manager.reset();
    const QDateTime after = QDateTime::currentDateTimeUtc();

    EXPECT_TRUE(logs_.contains("~windows_information_imp"));
    const QSettings record(path, QSettings::IniFormat);
    EXPECT_EQ(record.value("type").toString(), "usage");
    const QJsonObject written =
        QJsonDocument::fromJson(record.value("data").toByteArray()).object();
    EXPECT_EQ(written["startOn"].toString(), "2024-05-01T08:00:00Z");
    EXPECT_EQ(written["modelName"].toString(), "KS-100");
    const QString end = written["endOn"].toString();
    ASSERT_TRUE(utc_stamp.match(end).hasMatch()) << end.toStdString();
    EXPECT_GE(from_utc_stamp(end), before);
    EXPECT_LE(from_utc_stamp(end), after);
}

TEST_F(store_test, destruction_of_the_session_usage_record_stamps_its_end) {
    QCoreApplication::setApplicationName("scanner");
    auto manager = make_manager();
    manager->create_usage_info("C:/ple/x-R550.ple", "3.1.4", "KS-100", "turntable", 1);
    const QString path = manager->usage_file_path();
    ASSERT_TRUE(QFileInfo::exists(path)) << path.toStdString();
    api::write_record_file(path, "{}", "stale");

    manager.reset();

    const QSettings record(path, QSettings::IniFormat);
    EXPECT_EQ(record.value("type").toString(), "usage");
    const QJsonObject written =
        QJsonDocument::fromJson(record.value("data").toByteArray()).object();
    EXPECT_EQ(written["modelName"].toString(), "KS-100");
    EXPECT_TRUE(utc_stamp.match(written["endOn"].toString()).hasMatch());
}

// Without create_usage_info there is no usage file to rewrite, and nothing is
// written anywhere.
TEST_F(store_test, destruction_without_a_usage_record_writes_nothing) {
    auto manager = make_manager();
    manager.reset();

    EXPECT_TRUE(logs_.contains("~windows_information_imp"));
    EXPECT_EQ(QDir().entryList(QDir::AllEntries | QDir::NoDotAndDotDot), QStringList{"keploinfo"});
    EXPECT_TRUE(record_names().isEmpty());
}

TEST_F(store_test, information_clean_destroys_the_manager_through_its_own_destructor) {
    api::KeploInfoMgr* manager = api::information_init();
    ASSERT_NE(dynamic_cast<api::windows_information_imp*>(manager), nullptr);

    api::information_clean();

    EXPECT_TRUE(logs_.contains("~windows_information_imp"));
}

}  // namespace
}  // namespace test_support
