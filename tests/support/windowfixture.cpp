#include "support/windowfixture.h"
#include "support/bytefiles.h"

#include <QDir>
#include <QFile>

namespace velmora::test {

WindowFixture::WindowFixture()
{
    sim.system.program_folder = dir.path();
    sim.system.user_data_folder = dir.filePath(QStringLiteral("userdata"));
}

WindowFixture::~WindowFixture() = default;

QString WindowFixture::path(const QString& name) const { return dir.filePath(name); }

void WindowFixture::writeFile(const QString& name, const QStringList& lines) { writeBytes(name, crlf(lines)); }

void WindowFixture::writeBytes(const QString& name, const QByteArray& bytes) { putBytes(path(name), bytes); }

QByteArray WindowFixture::readBytes(const QString& name) const { return bytesOf(path(name)); }

bool WindowFixture::fileExists(const QString& name) const { return QFile::exists(path(name)); }

shell::MainWindow& WindowFixture::create()
{
    platform::Platform p = sim.platform();
    if (secrets)
        p.secrets = secrets;
    program = std::make_unique<shell::Program>(p);
    window = program->window.get();
    return *window;
}

shell::MainWindow& WindowFixture::start()
{
    create();
    program->load();
    sim.clock.advance(1000);
    return *window;
}

QStringList WindowFixture::logLines() const
{
    QStringList out;
    for (const QString& line : QString::fromUtf8(readBytes("Jobs.log")).split("\r\n", Qt::SkipEmptyParts)) {
        const qsizetype tab = line.indexOf('\t');
        out << (tab < 0 ? line : line.mid(tab + 1));
    }
    return out;
}

QStringList WindowFixture::serverNames() const
{
    QStringList out;
    for (int i = 0; i < window->ListView2->topLevelItemCount(); ++i)
        out << window->ListView2->topLevelItem(i)->text(0);
    return out;
}

QList<int> WindowFixture::serverIcons() const
{
    QList<int> out;
    for (int i = 0; i < window->ListView2->topLevelItemCount(); ++i)
        out << shell::MainWindow::serverIcon(window->ListView2->topLevelItem(i));
    return out;
}

void WindowFixture::select(const QString& name)
{
    QTreeWidgetItem* item = window->findServer(name);
    QVERIFY2(item, qPrintable(name));
    window->ListView2->setCurrentItem(item);
    window->selectServer();
}

QStringList WindowFixture::lines(const QString& name) const
{
    QString all = QString::fromUtf8(readBytes(name));
    if (all.endsWith("\r\n"))
        all.chop(2);
    return all.isEmpty() ? QStringList() : all.split("\r\n");
}

QByteArray crlf(const QStringList& lines)
{
    QByteArray out;
    for (const QString& l : lines)
        out += l.toUtf8() + "\r\n";
    return out;
}

} // namespace velmora::test
