#pragma once

#include <QByteArray>
#include <QLockFile>
#include <QString>

namespace uploader {

// Where a download lands before it is checked, and the one move that puts it
// in place. The library gets a target of the uploader's own beside PATH,
// ".NAME.new", which it writes through ".NAME.temp" (its rule cuts four
// characters and appends ".temp"), so both stay in PATH's folder and belong
// to this download alone; ".NAME.lock" keeps a second uploader off them.
// PATH itself changes only by the final rename.
class download_staging {
public:
    // A refusal is a small JSON answer; an installer is neither.
    static constexpr qint64 largest_refusal = 64 * 1024;

    explicit download_staging(const QString& target);  // an absolute path
    ~download_staging();                               // discards unless committed
    download_staging(const download_staging&) = delete;
    download_staging& operator=(const download_staging&) = delete;

    // Takes the lock and removes what an earlier run left behind; empty when
    // ready, otherwise why not.
    QString prepare();
    // The library's target, and the file it appends to meanwhile.
    const QString& staged() const { return staged_; }
    const QString& partial() const { return partial_; }
    // The service's reason when what arrived is a refusal of its own
    // ({"status":"failed","result":...}); empty otherwise.
    QString refusal() const;
    // The staged file's SHA-256 in lowercase hex; empty when unreadable.
    QByteArray staged_sha256() const;
    // Flushes the staged file to disk and renames it over PATH; empty when
    // done, otherwise why not.
    QString commit();
    void discard();

private:
    QString target_;
    QString staged_;
    QString partial_;
    QLockFile lock_;
    bool locked_ = false;
    bool committed_ = false;
};

}  // namespace uploader
