#pragma once

#include <QJsonObject>
#include <QSettings>
#include <QString>
#include <QStringList>

#include "information_api/information_api.h"

namespace TarvoConsumerScanner {
namespace information_api {

// The library's information manager: the session record, the machine profile,
// the record files in ./keploinfo/ and the upload configuration.
class windows_information_imp : public KeploInfoMgr {
public:
    windows_information_imp();

    // KeploInfoMgr, in its order.
    void record_scan(const scan_description_t& description, int enable_guide) override;
    void record_calibration(const QStringList& item_modules, const QString& software_version,
                            const QString& module_file, const QString& model_name,
                            const QString& modular_name, const QStringList& modular_files,
                            const QString& start_on, const QString& end_on,
                            const QStringList& item_classes, const QStringList& item_starts,
                            const QStringList& item_ends, const QStringList& item_results,
                            int enable_guide) override;
    void record_share(const QString& module_file, const QString& model_name,
                      const QString& modular_name, const QString& start_on, const QString& end_on,
                      const QString& target, const QString& name, const QString& account,
                      int enable_guide) override;
    void create_usage_info(const QString& module_file, const QString& software_version,
                           const QString& model_name, const QString& modular_name,
                           int enable_guide) override;
    QString record_score(const QString& score, const QString& module_file,
                         const QString& software_version, const QString& model_name,
                         const QString& modular_name, const QString& industry,
                         int enable_guide) override;
    QString record_feedback(const QString& module_file, const QString& software_version,
                            const QString& model_name, const QString& modular_name,
                            const QStringList& modular_files, int enable_guide,
                            const QString& email, const QString& industry, const QString& text,
                            const QStringList& attachments) override;
    void delete_old_records() override;
    int list_due_records(QStringList& out) override;
    int get_connect_time() override;
    void set_ple_file(const QString& path) override;
    void reserved_10() override;
    void get_upload_config(int& enable, int& interval, QString& address, QString& app_id) override;
    int read_record_file(const QString& path, QString& data, QString& type) override;
    void list_score_files(QStringList& out) override;
    void get_cdn_url(QString& out) override;
    void set_upload_urls(const QString& release_url, const QString& test_url) override;
    void reserved_16() override;
    void get_file_upload_url(QString& out) override;
    void set_file_upload_urls(const QString& release_url, const QString& test_url) override;

    // Stamps "endOn" into the session's usage document and rewrites its file.
    virtual ~windows_information_imp();

    // Machine profile probes, in this declaration order.
    virtual bool get_os_info(QString& os_name, QString& language, QString& resolution);
    virtual bool get_disk_info(QString& install_path, QString& disk_size, QString& disk_free_size);
    virtual bool get_cpu_info(QString& cpu_cores, QString& cpu_model);
    virtual bool get_gpu_info(QStringList& gpu_models, QStringList& gpu_memory_sizes);
    virtual bool get_memory_size(QString& memory_size);
    virtual int get_browser_info(QString& browser_name, QString& browser_version);

    bool get_os_name(QString& os_name);
    bool get_system_language(QString& language);
    bool enumerate_dxgi_adapters(QStringList& gpu_models, QStringList& gpu_memory_sizes);

    // Sets the usage-document keys in target from the session record; keys of
    // target that are not set again keep their values.
    void build_usage_document(QJsonObject& target);

    bool modern_os() const { return modern_os_; }
    const QString& usage_file_path() const { return usage_file_path_; }
    const QJsonObject& usage_document() const { return usage_document_; }

private:
    void start_session();
    void run_probes();
    // A value of "./res/system.ini", or default_value when it is not set.
    int system_setting(const char* key, int default_value);
    // Whether "./res/system.ini" selects the test service.
    bool test_service();

    QSettings system_settings_;
    QString spare_;
    bool modern_os_;

protected:
    // The session's usage record, rewritten by the destructor. Set by
    // create_usage_info; protected so that a subclass can stand in for it.
    QString usage_file_path_;
    QJsonObject usage_document_;

private:
    QString release_upload_url_;
    QString test_upload_url_;
    QString release_file_upload_url_;
    QString test_file_upload_url_;
};

}  // namespace information_api
}  // namespace TarvoConsumerScanner
