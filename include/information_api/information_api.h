// Public interface of the information_api library.
//
// A host application loads this library to record how it is used, to upload
// those records and files to the information service, to query the service for
// a software descriptor and to download an application installer.
//
// Threading: call every function here from one thread (the host's). Network work
// runs on the library's own worker thread, and information_sink callbacks arrive
// on that worker thread, not on the host's thread.
#pragma once

#include <QDateTime>
#include <QMetaType>
#include <QString>
#include <QStringList>
#include <QVariant>
#include <QVector>

#if defined(_WIN32)
#if defined(INFORMATION_API_BUILDING)
#define INFORMATION_API_EXPORT __declspec(dllexport)
#else
#define INFORMATION_API_EXPORT __declspec(dllimport)
#endif
#else
#define INFORMATION_API_EXPORT __attribute__((visibility("default")))
#endif

namespace TarvoConsumerScanner {
namespace information_api {

// Outcome of one request, delivered inside the QVariant of
// information_sink::on_response. Read it with info.value<response_info_t>().
//
// state:     0 success, 6 time-out, 7 network error, 8 download target not
//            writable, 10 the service did not answer "success".
// net_error: QNetworkReply::NetworkError, -1 for a time-out, -2 for an answer
//            the service rejected or that could not be parsed.
// Answers that cannot be parsed include JSON nested deeper than 256 levels.
// An upload answer over 1 MiB, or a descriptor over 16 MiB, is not read: the
// reply is aborted and reported with state 10, net_error -2 and the
// error_string "answer larger than <limit> bytes, not read".
struct response_info_t {
    bool ok;
    QString error_string;
    int state;
    int net_error;
    QString result;    // e.g. the stored file id of a file upload
    QVariant content;  // e.g. the QJsonDocument of a descriptor query
};

// Callback interface implemented by the host. The library never owns a sink;
// it must outlive every request started with it, that is until
// release_connect for the request's id (or information_clean) has returned:
// from then on no call for that connection starts, and one that was under way
// on the worker thread has ended. Calls arrive on the library's worker
// thread. A sink must not block waiting for the host's thread: the host's
// release waits for a call under way, and the two would wait for each other.
class INFORMATION_API_EXPORT information_sink {
public:
    information_sink();
    information_sink(const information_sink& other);
    information_sink& operator=(const information_sink& other);
    virtual ~information_sink();

    // Outcome of an information upload, a file upload or a descriptor query, or
    // a transport failure (state 7) or time-out (state 6) of such a request.
    // info holds a response_info_t.
    virtual void on_response(int connection_id, QVariant info) = 0;
    // Progress of an application download (no connection id is passed).
    virtual void on_download_progress(qint64 received, qint64 total) = 0;
    // End of an application download that finished without a network error.
    virtual void on_download_finished(bool ok, int state, int net_error) = 0;
};

// One step of a scan, as the host describes it. Field order is fixed.
struct scan_step_t {
    QString start_on;
    QString end_on;
    QString classify;
    QString turntable_steps;
    QString hdr;
    QStringList align_modes;
    QString module;
};

// The host's description of one scan, passed to KeploInfoMgr::record_scan.
// Field order is fixed.
struct scan_description_t {
    QString module_file;
    QString model_name;
    QString modular_name;
    QString software_version;
    QString start_on;
    QString end_on;
    QVector<scan_step_t> steps;
    QString texture;
    QString total_points;    // decimal integer text
    QString point_distance;  // decimal number text
    QString length;
    QString width;
    QString height;
    QString hand_held_point_gen_way;
    QString mesh_type;
    QString file_name;
    QStringList modular_files;
};

// The information manager handed out by information_init. It keeps the
// session record below, writes record files into ./keploinfo/, lists the ones
// due for upload and hands out the upload configuration. It sends nothing
// itself: pass what it gives to the request functions.
//
// The order of the operations is part of the binary interface; do not reorder.
// The destructor is deliberately not virtual: the library frees the manager
// itself in information_clean.
class INFORMATION_API_EXPORT KeploInfoMgr {
public:
    KeploInfoMgr();
    KeploInfoMgr(const KeploInfoMgr& other);
    KeploInfoMgr& operator=(const KeploInfoMgr& other);
    ~KeploInfoMgr();

    // 0
    virtual void record_scan(const scan_description_t& description, int enable_guide) = 0;
    // 1
    virtual void record_calibration(const QStringList& item_modules,
                                    const QString& software_version, const QString& module_file,
                                    const QString& model_name, const QString& modular_name,
                                    const QStringList& modular_files, const QString& start_on,
                                    const QString& end_on, const QStringList& item_classes,
                                    const QStringList& item_starts, const QStringList& item_ends,
                                    const QStringList& item_results, int enable_guide) = 0;
    // 2
    virtual void record_share(const QString& module_file, const QString& model_name,
                              const QString& modular_name, const QString& start_on,
                              const QString& end_on, const QString& target, const QString& name,
                              const QString& account, int enable_guide) = 0;
    // 3
    virtual void create_usage_info(const QString& module_file, const QString& software_version,
                                   const QString& model_name, const QString& modular_name,
                                   int enable_guide) = 0;
    // 4: returns the record's path
    virtual QString record_score(const QString& score, const QString& module_file,
                                 const QString& software_version, const QString& model_name,
                                 const QString& modular_name, const QString& industry,
                                 int enable_guide) = 0;
    // 5: returns the record's path
    virtual QString record_feedback(const QString& module_file, const QString& software_version,
                                    const QString& model_name, const QString& modular_name,
                                    const QStringList& modular_files, int enable_guide,
                                    const QString& email, const QString& industry,
                                    const QString& text, const QStringList& attachments) = 0;
    // 6
    virtual void delete_old_records() = 0;
    // 7: appends the due record paths; returns the list's size after the last
    // append, or 0 when nothing was appended
    virtual int list_due_records(QStringList& out) = 0;
    // 8: seconds
    virtual int get_connect_time() = 0;
    // 9
    virtual void set_ple_file(const QString& path) = 0;
    // 10
    virtual void reserved_10() = 0;
    // 11
    virtual void get_upload_config(int& enable, int& interval, QString& address,
                                   QString& app_id) = 0;
    // 12: 0 when the file exists, -1 when not (outputs untouched)
    virtual int read_record_file(const QString& path, QString& data, QString& type) = 0;
    // 13
    virtual void list_score_files(QStringList& out) = 0;
    // 14
    virtual void get_cdn_url(QString& out) = 0;
    // 15
    virtual void set_upload_urls(const QString& release_url, const QString& test_url) = 0;
    // 16
    virtual void reserved_16() = 0;
    // 17
    virtual void get_file_upload_url(QString& out) = 0;
    // 18
    virtual void set_file_upload_urls(const QString& release_url, const QString& test_url) = 0;

    // The session record.
    QDateTime start_time;  // local time the session started
    QString model_name;
    QString serial_number;
    QString software_name;
    QString software_version;
    QString spare_text;
    QString start_on;  // UTC "yyyy-MM-ddThh:mm:ssZ"
    QString end_on;    // UTC "yyyy-MM-ddThh:mm:ssZ"
    QString os_name;
    QString language;
    QString resolution;
    QString spare_text_2;
    QString install_path;
    QString browser_name;
    QString browser_version;
    QString cpu_cores;
    QString cpu_model;
    QString memory_size;
    QStringList gpu_models;
    QStringList gpu_memory_sizes;
    QString disk_size;
    QString disk_free_size;
    QString module_file;
    QString modular_name;
    QStringList modular_files;
    qint32 enable_guide;
};

// Starts the worker thread on the first call and returns the one manager.
INFORMATION_API_EXPORT KeploInfoMgr* information_init();
// Releases every connection, stops the worker thread and frees the manager.
// No sink call starts after it returns.
INFORMATION_API_EXPORT int information_clean();
// Schedules the connector of connection_id for deletion; -1 for an unknown id.
// No sink call for that connection starts after it returns, and one under way
// has ended: the host may free the sink. A request whose id was taken over
// by a later one under the same id is not this connection: it still reports
// until information_clean.
INFORMATION_API_EXPORT int release_connect(int connection_id);

// Posts body (JSON) to url + "?type=" + type with the header X-Auth-AppID.
INFORMATION_API_EXPORT int upload_information(const QString& url, const QString& body,
                                              const QString& app_id, const QString& type,
                                              information_sink* sink, int connection_id,
                                              int timeout);
// Uploads a file as a multipart form to url + "?category=feedback&bucket=pub";
// the stored file id arrives in response_info_t::result.
INFORMATION_API_EXPORT int upload_file(const QString& url, const QString& file_path,
                                       const QString& app_id, const QString& extra,
                                       information_sink* sink, int connection_id, int timeout);
// Fetches base_url + "/software/<software>/interface.json"; the document
// arrives in response_info_t::content.
INFORMATION_API_EXPORT int get_url_json_file(const QString& base_url, const QString& software,
                                             information_sink* sink, int connection_id,
                                             int timeout);
// Downloads url to file_path through a ".temp" file beside it.
INFORMATION_API_EXPORT int downLoadApp(int connection_id, information_sink* sink,
                                       const QString& url, const QString& file_path);

}  // namespace information_api
}  // namespace TarvoConsumerScanner

Q_DECLARE_METATYPE(TarvoConsumerScanner::information_api::response_info_t)
