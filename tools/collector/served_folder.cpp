#include "served_folder.h"

#include <QDir>
#include <QFileInfo>

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
