#pragma once

#include <QByteArray>
#include <QString>
#include <string>

namespace TarvoConsumerScanner {
namespace information_api {

// What the library accepts of a service's answer. The answers are small status
// documents and descriptors; anything beyond these bounds is a hostile or
// broken service, and is refused rather than allowed to exhaust the host.

// JSON nested deeper than this counts as an answer that cannot be parsed.
constexpr int max_answer_nesting = 256;

// Bytes of an information- or file-upload answer, and of a descriptor.
constexpr qint64 max_upload_answer_size = 1024 * 1024;
constexpr qint64 max_descriptor_answer_size = 16 * 1024 * 1024;

// The error text of an answer refused for its size.
QString oversized_answer_text(qint64 limit);

// Whether the arrays and objects of a JSON text nest at most limit deep.
// A linear scan that knows strings and escapes; it does not validate.
bool nesting_within(const QByteArray& json, int limit);

// An answer as log lines quote it: whole up to a few kilobytes, else its
// start and its size.
std::string quoted_answer(const QByteArray& body);
QByteArray quoted_answer_bytes(const QByteArray& body);

}  // namespace information_api
}  // namespace TarvoConsumerScanner
