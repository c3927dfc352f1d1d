#include "answer_bounds.h"

#include "json_outline.h"

namespace TarvoConsumerScanner {
namespace information_api {

namespace {

// Answers longer than this are quoted in part in the log.
constexpr int quoted_prefix_size = 64 * 1024;

}  // namespace

QString oversized_answer_text(qint64 limit) {
    return QString("answer larger than %1 bytes, not read").arg(limit);
}

bool nesting_within(const QByteArray& json, int limit) {
    return !outline_of(json, limit).too_deep;
}

QByteArray quoted_answer_bytes(const QByteArray& body) {
    if (body.size() <= quoted_prefix_size) return body;
    return body.left(quoted_prefix_size) + "... (" + QByteArray::number(body.size()) + " bytes)";
}

std::string quoted_answer(const QByteArray& body) {
    return quoted_answer_bytes(body).toStdString();
}

}  // namespace information_api
}  // namespace TarvoConsumerScanner
