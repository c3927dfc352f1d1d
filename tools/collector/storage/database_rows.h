#pragma once

#include <QString>
#include <cstddef>
#include <stdexcept>
#include <string_view>
#include <variant>

// What both database engines under the collector share: their failures, the
// values given to a statement and the rows a query gives back.

// A failure of the database, with the engine's own message.
class database_error : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

// A value for a statement's $1, $2, ...: NULL, a whole number or a text.
using database_value = std::variant<std::nullptr_t, qint64, QString>;

// The rows of one query, read one at a time. A failure while reading throws
// database_error.
class database_rows {
public:
    virtual ~database_rows() = default;

    // Steps to the next row: false after the last one.
    virtual bool next() = 0;
    // The columns of the current row; a view lasts until the next step.
    virtual std::string_view view(int column) const = 0;
    virtual qint64 integer(int column) const = 0;
    virtual bool is_null(int column) const = 0;

    QString text(int column) const {
        const std::string_view utf8 = view(column);
        return QString::fromUtf8(utf8.data(), int(utf8.size()));
    }
};
