#pragma once
// The source folder, for tests and benchmarks that start helpers kept in the source tree.
// Header-only so that the benchmarks can use it too.
#include <QCoreApplication>
#include <QDir>
#include <QFileInfo>
#include <QString>

namespace velmora::testsupport {

// $VELMORA_SOURCE_DIR, else the first folder upwards from the working folder or from the
// program's folder that holds tests/support/sourcefolder.h.
inline QString sourceFolder()
{
    const QString env = qEnvironmentVariable("VELMORA_SOURCE_DIR");
    if (!env.isEmpty())
        return env;
    for (const QString& start : {QDir::currentPath(), QCoreApplication::applicationDirPath()}) {
        QDir dir(start);
        for (int i = 0; i < 6; ++i) {
            if (QFileInfo::exists(dir.filePath(QStringLiteral("tests/support/sourcefolder.h"))))
                return dir.absolutePath();
            if (!dir.cdUp())
                break;
        }
    }
    return QDir::currentPath();
}

} // namespace velmora::testsupport
