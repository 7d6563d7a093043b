#include "shell/journalwindow.h"

#include "platform/formcontrols.h"
#include "platform/journal.h"
#include "platform/worker.h"

#include <QFontDatabase>
#include <QPlainTextEdit>
#include <QVBoxLayout>

namespace velmora::shell {

JournalWindow::JournalWindow(platform::UnitJournal* journal, platform::Worker& worker, QWidget* parent)
    : QDialog(parent), journal_(journal), worker_(worker)
{
    setObjectName(QStringLiteral("FormJournal"));
    Text1 = platform::named(new QPlainTextEdit, "Text1");
    Text1->setReadOnly(true);
    Text1->setLineWrapMode(QPlainTextEdit::NoWrap);
    Text1->setFont(QFontDatabase::systemFont(QFontDatabase::FixedFont));
    auto* layout = new QVBoxLayout(this);
    layout->addWidget(Text1);
    resize(860, 400);
}

void JournalWindow::showFor(const QString& server, const QString& service)
{
    setWindowTitle(QStringLiteral("Journal of ") + service + QStringLiteral(" on ") + server);
    show();
    raise();
    activateWindow();
    if (!journal_) {
        Text1->setPlainText(QStringLiteral("This program reads no journal here."));
        return;
    }
    Text1->setPlainText(QStringLiteral("Reading the journal..."));
    const int asked = ++asked_;
    platform::UnitJournal* journal = journal_;
    worker_.run(this, [this, journal, server, service, asked]() -> std::function<void()> {
        const platform::JournalLines lines = journal->lastLines(server, service, kLines);
        return [this, lines, asked] {
            if (asked == asked_)
                Text1->setPlainText(lines.problem.isEmpty() ? lines.lines.join(QLatin1Char('\n')) : lines.problem);
        };
    });
}

} // namespace velmora::shell
