#pragma once
// A real full disk for a test: the test program runs again as a child in a user and mount
// namespace of its own, where a folder is a fresh tmpfs of a few KiB that nobody else sees. The
// child (the test's own code, chosen by its arguments) fills the disk, does what the test is
// about and prints "what: outcome" lines, which the parent gets back.
#include <QMap>
#include <QString>
#include <QStringList>

namespace velmora::test {

struct SmallDiskRun {
    QString skipReason;          // why no small disk could be had (the caller skips); else empty
    QMap<QString, QString> seen; // the child's "what: outcome" lines
    QString errors;              // the child's standard error
};

// Mounts a tmpfs of kib KiB (mode 0700) on folder, runs setup (shell commands, "$1" is folder)
// and then this test program with childArgs followed by folder, and waits for it to end.
SmallDiskRun runOnSmallDisk(const QString& folder, int kib, const QStringList& childArgs, const QString& setup = {});

// Fills the file system of folder up to its last byte (with a file "filler" in it).
void fillUp(const QString& folder);

// Prints one "what: outcome" line for the parent.
void tellParent(const char* what, const QString& outcome);

} // namespace velmora::test
