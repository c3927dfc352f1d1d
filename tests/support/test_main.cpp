// Test main shared by every suite: a QApplication (the library reads the
// desktop size through it), glog, and a fresh working directory per process,
// since the library keeps its records relative to the working directory.
#include <glog/logging.h>
#include <gtest/gtest.h>

#include <QApplication>
#include <QDir>
#include <QTemporaryDir>
#include <cstdlib>

int main(int argc, char** argv) {
    if (!std::getenv("DISPLAY") && !std::getenv("WAYLAND_DISPLAY"))
        qputenv("QT_QPA_PLATFORM", "offscreen");
    testing::InitGoogleTest(&argc, argv);
    google::InitGoogleLogging(argv[0]);
    FLAGS_logtostderr = true;

    QApplication app(argc, argv);
    QTemporaryDir workdir;
    if (!workdir.isValid() || !QDir::setCurrent(workdir.path())) return 2;
    const int result = RUN_ALL_TESTS();
    QDir::setCurrent(QDir::tempPath());
    return result;
}
