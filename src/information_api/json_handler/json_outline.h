#pragma once

#include <QByteArray>

namespace TarvoConsumerScanner {
namespace information_api {

// What one linear pass over a JSON text sees of its structure, without
// validating it and without recursion, before a parser is let at it.
struct json_outline {
    // Arrays and objects nest deeper than the limit the pass was given.
    bool too_deep = false;
    // An object repeats a name whose earlier value is an array or an object.
    // Qt's parser keeps the later value and loses the earlier one's memory.
    bool replaces_a_container = false;
};

json_outline outline_of(const QByteArray& json, int max_depth);

}  // namespace information_api
}  // namespace TarvoConsumerScanner
