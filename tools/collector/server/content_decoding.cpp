#include "server/content_decoding.h"

#include <strings.h>
#include <zlib.h>

#include "server/json_answer.h"

namespace {

class inflating_receiver : public body_receiver {
public:
    explicit inflating_receiver(std::unique_ptr<body_receiver> inner) : inner_(std::move(inner)) {
        // 32: a gzip or a zlib header, whichever comes.
        broken_ = inflateInit2(&stream_, 15 + 32) != Z_OK;
    }
    ~inflating_receiver() override { inflateEnd(&stream_); }

    bool take(const char* data, std::size_t length, http_response& res) override {
        stream_.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(data));
        stream_.avail_in = uInt(length);
        while (!broken_ && !ended_ && stream_.avail_in > 0) {
            char out[64 * 1024];
            stream_.next_out = reinterpret_cast<Bytef*>(out);
            stream_.avail_out = sizeof out;
            const int result = inflate(&stream_, Z_NO_FLUSH);
            broken_ = result != Z_OK && result != Z_STREAM_END;
            ended_ = result == Z_STREAM_END;
            const std::size_t produced = sizeof out - stream_.avail_out;
            if (produced > 0 && !inner_->take(out, produced, res)) return false;
        }
        return true;
    }
    void finish(const http_request& req, bool complete, http_response& res) override {
        inner_->finish(req, complete && ended_ && !broken_, res);
    }

private:
    std::unique_ptr<body_receiver> inner_;
    z_stream stream_{};
    bool broken_ = false;
    bool ended_ = false;
};

}  // namespace

std::unique_ptr<body_receiver> decoding(std::unique_ptr<body_receiver> receiver,
                                        const std::string& content_encoding, http_response& res) {
    const char* encoding = content_encoding.c_str();
    if (!receiver || !*encoding || strcasecmp(encoding, "identity") == 0) return receiver;
    if (strcasecmp(encoding, "gzip") == 0 || strcasecmp(encoding, "x-gzip") == 0 ||
        strcasecmp(encoding, "deflate") == 0)
        return std::make_unique<inflating_receiver>(std::move(receiver));
    answer_failed(res, "unsupported content encoding " + QString::fromStdString(content_encoding),
                  415);
    res.close_connection = true;
    return nullptr;
}
