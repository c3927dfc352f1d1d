// Replays a fuzz target's corpus without a fuzzer: every file of the folders
// named goes through the target once. A crash or a sanitizer's report fails
// the test that runs it.
#include <QDirIterator>
#include <QFile>
#include <QFileInfo>
#include <cstdint>
#include <cstdio>

extern "C" int LLVMFuzzerInitialize(int* argc, char*** argv);
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

int main(int argc, char** argv) {
    // The inputs are read before the target sets up, which may change the
    // working folder.
    QList<QByteArray> inputs;
    for (int i = 1; i < argc; ++i) {
        for (QDirIterator files(QString::fromLocal8Bit(argv[i]), QDir::Files); files.hasNext();) {
            QFile file(files.next());
            if (!file.open(QIODevice::ReadOnly)) return 1;
            inputs << file.readAll();
        }
    }
    LLVMFuzzerInitialize(&argc, &argv);
    for (const QByteArray& input : inputs)
        LLVMFuzzerTestOneInput(reinterpret_cast<const uint8_t*>(input.constData()),
                               size_t(input.size()));
    std::printf("replayed %d inputs\n", int(inputs.size()));
    return inputs.isEmpty() ? 1 : 0;
}
