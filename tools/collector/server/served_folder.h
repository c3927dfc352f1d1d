#pragma once

#include <QString>

#include "server/http_exchange.h"

// A folder whose files are served read-only. A name below it leads to a file
// inside it or to nothing: "..", empty parts and symbolic links that lead
// out of the folder are all refused.
class served_folder {
public:
    served_folder() = default;
    // Empty when path is not an existing folder.
    explicit served_folder(const QString& path);

    bool is_set() const { return !root_.isEmpty(); }
    const QString& path() const { return root_; }
    // The real path of the regular file at relative (parts separated by '/'),
    // or an empty text when there is none inside the folder.
    QString file(const QString& relative) const;

private:
    QString root_;  // canonical, without symbolic links
};

// Answers with the file at path, streamed with its length announced so that a
// client can show progress; 500 when it cannot be read.
void stream_file(http_response& res, const QString& path, const char* content_type);
