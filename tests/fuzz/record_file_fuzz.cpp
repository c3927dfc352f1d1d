// read_record_file over arbitrary file bytes, as a record another program
// or a broken disk left in the record folder.
#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QTemporaryDir>
#include <cstddef>
#include <cstdint>
#include <memory>

#include "fuzz_support.h"
#include "windows_information_imp/windows_information_imp.h"

namespace api = TarvoConsumerScanner::information_api;

namespace {

std::unique_ptr<QTemporaryDir> folder;
std::unique_ptr<api::windows_information_imp> manager;

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    fuzz_quiet();
    folder = std::make_unique<QTemporaryDir>();
    QDir::setCurrent(folder->path());
    // The uploader's manager: no session, no machine probes.
    QCoreApplication::setApplicationName("information_uploader");
    manager = std::make_unique<api::windows_information_imp>();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const QString path = "./keploinfo/fuzz.info2";
    {
        QFile file(path);
        if (!file.open(QIODevice::WriteOnly | QIODevice::Truncate)) return 0;
        file.write(reinterpret_cast<const char*>(data), qint64(size));
    }
    QString json, type;
    manager->read_record_file(path, json, type);
    QStringList due;
    manager->list_due_records(due);
    return 0;
}
