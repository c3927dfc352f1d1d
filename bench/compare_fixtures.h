#pragma once

#include <QByteArray>
#include <QString>
#include <functional>

namespace bench {

// A usage record's JSON of about the size a host writes (1.2 KB).
QByteArray sample_body();

// Replaces folder/keploinfo with count record files "rNNNNN<suffix>" holding
// body as a usage record, each last written age_seconds(i) ago. The files
// are byte for byte what the library writes.
void write_records(const QString& folder, int count, const QString& suffix,
                   const std::function<qint64(int)>& age_seconds);

// A curl configuration posting body_file count times to url with the
// library's headers; without keep_alive each post has a connection of its
// own, as each of the library's requests has.
void write_curl_posts(const QString& path, const QString& url, const QString& body_file, int count,
                      bool keep_alive);

// Writes text to path, making its folder.
void write_text(const QString& path, const QByteArray& text);

// A file of the size that holds no blocks on disk.
bool write_sparse_file(const QString& path, qint64 size);

}  // namespace bench
