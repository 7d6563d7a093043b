#pragma once
// A simulated world for window tests: a data folder of the test's own, simulated platform
// services, and the main window started on them.
#include "platform/sim/simplatform.h"
#include "shell/mainwindow.h"
#include "shell/program.h"
#include "platform/icons.h"
#include "servicecontrol/servicecontrol.h"

#include <QCoreApplication>
#include <QPointer>
#include <QTemporaryDir>
#include <QTest>
#include <QTreeWidget>
#include <memory>

namespace velmora::test {

class WindowFixture {
public:
    WindowFixture();
    ~WindowFixture();

    // Writes a file of the data folder: each line followed by CR LF.
    void writeFile(const QString& name, const QStringList& lines);
    // Writes raw bytes to a file of the data folder.
    void writeBytes(const QString& name, const QByteArray& bytes);
    QByteArray readBytes(const QString& name) const;
    bool fileExists(const QString& name) const;
    QString path(const QString& name) const;
    // The job log's lines without the timestamps that open check and server lines.
    QStringList logLines() const;

    // The main window's server list, top to bottom: names and icon numbers.
    QStringList serverNames() const;
    QList<int> serverIcons() const;
    // Makes a listed server the selected one, as a click on it does.
    void select(const QString& name);
    // A data file's lines without their CR LF; none for an empty or missing file.
    QStringList lines(const QString& name) const;

    // Builds the program and runs its start-up, including the second's pause.
    shell::MainWindow& start();
    // Builds the program without starting it.
    shell::MainWindow& create();

    platform::sim::SimPlatform sim;
    // A real secret store in place of the simulated one, when set before create().
    platform::SecretStore* secrets = nullptr;
    QTemporaryDir dir;
    std::unique_ptr<shell::Program> program;
    shell::MainWindow* window = nullptr;
};

// Whether a window released on closing is gone.
template <typename T>
bool released(const QPointer<T>& window)
{
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    return window.isNull();
}

// "a\r\nb\r\n" for {"a", "b"}.
QByteArray crlf(const QStringList& lines);

} // namespace velmora::test
