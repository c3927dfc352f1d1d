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

void stream_file(http_response& res, const QString& path, const char* content_type) {
    auto file = std::make_shared<QFile>(path);
    if (!file->open(QIODevice::ReadOnly)) return answer_failed(res, "cannot read the file", 500);
    res.set_content_provider(
        quint64(file->size()), content_type,
        [file](std::uint64_t offset, char* into, std::size_t most) {
            const qint64 n = file->seek(qint64(offset)) ? file->read(into, qint64(most)) : -1;
            return std::size_t(std::max<qint64>(n, 0));
        });
}
