// Replays a fuzz target's corpus without a fuzzer: every file named, or
// every file of every folder named, goes through the target once. A crash
// or a sanitizer's report fails the test that runs it.
#include <QByteArray>
#include <QDir>
#include <QDirIterator>
#include <QFile>
#include <QFileInfo>
#include <QStringList>
#include <cstddef>
#include <cstdint>
#include <cstdio>

extern "C" int LLVMFuzzerInitialize(int* argc, char*** argv);
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

namespace {

int replay(const QString& path) {
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly)) {
        std::fprintf(stderr, "cannot read %s\n", qPrintable(path));
        return 1;
    }
    const QByteArray bytes = file.readAll();
    LLVMFuzzerTestOneInput(reinterpret_cast<const uint8_t*>(bytes.constData()),
                           size_t(bytes.size()));
    return 0;
}

}  // namespace

int main(int argc, char** argv) {
    // The inputs are found before the target sets up, which may change the
    // working folder.
    QStringList inputs;
    for (int i = 1; i < argc; ++i) {
        const QFileInfo name(QString::fromLocal8Bit(argv[i]));
        if (!name.isDir()) inputs << name.absoluteFilePath();
        for (QDirIterator files(name.absoluteFilePath(), QDir::Files); files.hasNext();)
            inputs << files.next();
    }
    LLVMFuzzerInitialize(&argc, &argv);
    int failures = 0;
    for (const QString& input : inputs) failures += replay(input);
    std::printf("replayed %d inputs\n", int(inputs.size()));
    return failures == 0 && !inputs.isEmpty() ? 0 : 1;
}
