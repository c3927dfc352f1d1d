#include "server/served_folder.h"

#include <QDir>
#include <QFileInfo>
#include <memory>

#include "server/json_answer.h"

served_folder::served_folder(const QString& path) {
    const QFileInfo info(path);
    if (info.isDir()) root_ = info.canonicalFilePath();
}

QString served_folder::file(const QString& relative) const {
    if (root_.isEmpty() || relative.isEmpty() || relative.contains(QChar(0))) return QString();
    for (const QString& part : relative.split('/'))
        if (part.isEmpty() || part == "." || part == "..") return QString();
    const QFileInfo info(QDir(root_).filePath(relative));
    const QString real = info.canonicalFilePath();  // empty when missing
    const QString inside = root_.endsWith('/') ? root_ : root_ + '/';
    if (!real.startsWith(inside) || !QFileInfo(real).isFile()) return QString();
    return real;
}

void stream_file(httplib::Response& res, const QString& path, const char* content_type) {
    auto file = std::make_shared<QFile>(path);
    if (!file->open(QIODevice::ReadOnly)) return answer_failed(res, "cannot read the file", 500);
    if (file->size() == 0) return res.set_content(std::string(), content_type);
    res.set_content_provider(
        size_t(file->size()), content_type,
        [file](size_t offset, size_t length, httplib::DataSink& sink) {
            if (!file->seek(qint64(offset))) return false;
            const QByteArray chunk = file->read(qint64(std::min<size_t>(length, 64 * 1024)));
            return !chunk.isEmpty() && sink.write(chunk.constData(), size_t(chunk.size()));
        });
}
