// The handlers of the information- and file-upload answers and of the
// descriptor, each fed the same arbitrary bytes as a finished reply's body.
#include <QJsonDocument>
#include <cstddef>
#include <cstdint>

#include "fuzz_support.h"
#include "json_handler/json_handler.h"

namespace api = TarvoConsumerScanner::information_api;

namespace {

// Reads what the host reads of an outcome.
class reading_sink : public api::information_sink {
public:
    void on_response(int, QVariant info) override {
        const api::response_info_t outcome = info.value<api::response_info_t>();
        volatile int seen = outcome.state + outcome.result.size() +
                            outcome.content.toJsonDocument().toJson().size();
        (void)seen;
    }
    void on_download_progress(qint64, qint64) override {}
    void on_download_finished(bool, int, int) override {}
};

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    fuzz_quiet();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const QByteArray body(reinterpret_cast<const char*>(data), int(size));
    reading_sink sink;
    api::upload_handler upload(&sink, 1);
    api::upload_file_handler file_upload(&sink, 2);
    api::get_url_json_file_handler descriptor(&sink, 3);
    for (api::json_handler* handler :
         std::initializer_list<api::json_handler*>{&upload, &file_upload, &descriptor}) {
        fake_reply reply(body);
        handler->handle(&reply);
    }
    return 0;
}
