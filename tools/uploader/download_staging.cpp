#include "download_staging.h"

#include <fcntl.h>
#include <unistd.h>

#include <QCryptographicHash>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonDocument>
#include <QJsonObject>
#include <cerrno>
#include <cstdio>
#include <cstring>

namespace uploader {

namespace {

QString hidden_beside(const QFileInfo& target, const char* suffix) {
    return target.absoluteDir().filePath("." + target.fileName() + suffix);
}

bool sync_to_disk(const QString& path, int flags) {
    const int fd = ::open(QFile::encodeName(path).constData(), flags | O_CLOEXEC);
    if (fd < 0) return false;
    const bool synced = ::fsync(fd) == 0;
    ::close(fd);
    return synced;
}

}  // namespace

download_staging::download_staging(const QString& target)
    : target_(target),
      staged_(hidden_beside(QFileInfo(target), ".new")),
      partial_(hidden_beside(QFileInfo(target), ".temp")),
      lock_(hidden_beside(QFileInfo(target), ".lock")) {
    // Only a lock whose process is gone is stale, however long a download takes.
    lock_.setStaleLockTime(0);
}

download_staging::~download_staging() {
    if (!committed_) discard();
}

QString download_staging::prepare() {
    if (!lock_.tryLock(0)) {
        return lock_.error() == QLockFile::LockFailedError
                   ? "another download to " + target_ + " is under way"
                   : "cannot write in the folder of " + target_;
    }
    locked_ = true;
    discard();
    if (QFile::exists(staged_) || QFile::exists(partial_))
        return "cannot remove the leftovers " + staged_ + " and " + partial_;
    return QString();
}

QString download_staging::refusal() const {
    QFile answer(partial_);
    if (answer.size() > largest_refusal || !answer.open(QIODevice::ReadOnly)) return QString();
    const QJsonObject object = QJsonDocument::fromJson(answer.readAll()).object();
    const QString status = object.value("status").toString();
    if (status.isEmpty() || status == "success") return QString();
    const QString result = object.value("result").toString();
    return result.isEmpty() ? "\"status\": \"" + status + "\"" : result;
}

QByteArray download_staging::staged_sha256() const {
    QFile file(staged_);
    QCryptographicHash hash(QCryptographicHash::Sha256);
    if (!file.open(QIODevice::ReadOnly) || !hash.addData(&file)) return QByteArray();
    return hash.result().toHex();
}

QString download_staging::commit() {
    // Flushed first, so that a crash cannot leave PATH renamed but empty.
    if (!sync_to_disk(staged_, O_RDONLY)) return "cannot flush " + staged_ + " to disk";
    // A replaced file keeps its permissions (an executable bit, say).
    if (QFile::exists(target_)) QFile::setPermissions(staged_, QFile::permissions(target_));
    if (std::rename(QFile::encodeName(staged_).constData(),
                    QFile::encodeName(target_).constData()) != 0)
        return QString("cannot move the file to %1: %2").arg(target_, std::strerror(errno));
    committed_ = true;
    sync_to_disk(QFileInfo(target_).absolutePath(), O_RDONLY | O_DIRECTORY);
    return QString();
}

void download_staging::discard() {
    // The files of another uploader's download are not ours to remove.
    if (!locked_) return;
    QFile::remove(staged_);
    QFile::remove(partial_);
}

}  // namespace uploader
