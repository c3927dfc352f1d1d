#include "storage/record_facts.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <cmath>

#include "json_handler/json_outline.h"

namespace {

const int label_length = 200;
const int text_length = 4000;
const int list_length = 16;

// A label: one line, without surrounding blanks, cut to a length a chart shows.
QString label(const QJsonValue& value) {
    return value.toString().simplified().left(label_length);
}

QStringList labels(const QJsonValue& list, const char* key, const char* fallback = nullptr) {
    QStringList out;
    for (const QJsonValue& entry : list.toArray()) {
        QString text = label(entry.toObject().value(key));
        if (text.isEmpty() && fallback) text = label(entry.toObject().value(fallback));
        if (!text.isEmpty() && !out.contains(text)) out << text;
        if (out.size() == list_length) break;
    }
    return out;
}

// A JSON number as a whole number, when it is one that fits.
std::optional<qint64> whole(const QJsonValue& value) {
    const double number = value.toDouble();
    if (!value.isDouble() || std::abs(number) > 9e15) return std::nullopt;
    return qint64(number);
}

}  // namespace

record_facts facts_of(const QJsonObject& record) {
    record_facts facts;
    facts.software_version = label(record.value("softwareVer"));
    facts.model_name = label(record.value("modelName"));
    const QJsonObject os = record.value("osSoftExt").toObject();
    facts.os_name = label(os.value("osName"));
    facts.language = label(os.value("lang"));
    facts.resolution = label(os.value("resolution"));
    const QJsonObject hardware = record.value("osHdExt").toObject();
    facts.cpu_model = label(hardware.value("cpu").toArray().at(0).toObject().value("cpuModel"));
    facts.memory_bytes = qMax<qint64>(0, whole(hardware.value("memSize")).value_or(0));
    facts.gpu_models = labels(hardware.value("gpu"), "gpuModel");
    facts.modules = labels(record.value("modularExt").toObject().value("modular"), "mple", "name");
    const QJsonObject content = record.value("content").toObject();
    facts.score = whole(content.value("score"));
    facts.email = label(content.value("email"));
    facts.feedback = content.value("content").toString().left(text_length);
    for (const QJsonValue& attachment : content.value("attachs").toArray())
        if (attachment.isString() && facts.attachments.size() < list_length)
            facts.attachments << label(attachment);
    return facts;
}

record_facts facts_of_body(const QByteArray& body) {
    const auto outline = TarvoConsumerScanner::information_api::outline_of(body, 256);
    if (outline.too_deep || outline.replaces_a_container) return {};
    return facts_of(QJsonDocument::fromJson(body).object());
}

QString joined(const QStringList& values) {
    return values.join('\n');
}
