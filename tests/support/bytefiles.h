#pragma once
// Files as whole runs of bytes: for tests that lay down a file's exact bytes (a script, a
// broken file) and compare what the program wrote, byte for byte.
#include <QByteArray>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QString>
#include <QTest>

namespace velmora::test {

// Writes the bytes, making the folder; executable makes it mode 0700. A failure fails the test.
inline void putBytes(const QString& path, const QByteArray& bytes, bool executable = false)
{
    QDir().mkpath(QFileInfo(path).absolutePath());
    QFile f(path);
    QVERIFY2(f.open(QIODevice::WriteOnly | QIODevice::Truncate), qPrintable(path));
    QCOMPARE(f.write(bytes), bytes.size());
    f.close();
    if (executable)
        QVERIFY(f.setPermissions(QFileDevice::ReadOwner | QFileDevice::WriteOwner | QFileDevice::ExeOwner));
}

// The file's bytes; empty when it cannot be read.
inline QByteArray bytesOf(const QString& path)
{
    QFile f(path);
    return f.open(QIODevice::ReadOnly) ? f.readAll() : QByteArray();
}

inline QString textOf(const QString& path) { return QString::fromUtf8(bytesOf(path)); }

} // namespace velmora::test
