#include "shell/propertieswindow.h"

#include "core/datafolder.h"
#include "core/monitoredservices.h"
#include "core/writeresult.h"
#include "platform/formcontrols.h"
#include "platform/messageboxes.h"

#include <QCheckBox>
#include <QGridLayout>
#include <QGroupBox>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QListWidget>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QVBoxLayout>

namespace velmora::shell {

using platform::MsgIcon;
using platform::named;

namespace {

const QString crlf = QStringLiteral("\r\n");

// The stored texts join their lines with CR LF; the text boxes with a line feed.
QString shown(const QString& stored) { return QString(stored).replace(crlf, QStringLiteral("\n")); }
QString stored(const QPlainTextEdit* box) { return box->toPlainText().replace(QLatin1Char('\n'), crlf); }

} // namespace

PropertiesWindow::PropertiesWindow(core::MonitoredServices& monitored, platform::MessageBoxes& boxes,
                                   ServerKindChoice kinds, QWidget* parent)
    : QDialog(parent), monitored_(monitored), boxes_(boxes), kinds_(kinds)
{
    setObjectName(QStringLiteral("Form10"));
    setWindowTitle(QStringLiteral("Server Properties"));
    setAttribute(Qt::WA_DeleteOnClose);
    // While it is open nothing else rewrites the server's file from the program.
    setWindowModality(Qt::ApplicationModal);
    buildControls();
    connect(Command1, &QPushButton::clicked, this, &PropertiesWindow::save);
    connect(Command2, &QPushButton::clicked, this, &QDialog::close);
}

void PropertiesWindow::buildControls()
{
    Frame1 = named(new QGroupBox(QStringLiteral("Properties:")), "Frame1");
    auto* grid = new QGridLayout(Frame1);
    int row = 0;
    auto labelled = [&](const char* labelName, const QString& caption, QWidget* field) {
        grid->addWidget(named(new QLabel(caption), labelName), row, 0, Qt::AlignTop);
        grid->addWidget(field, row, 1);
        ++row;
    };
    Text1 = named(new QLineEdit, "Text1");
    Text2 = named(new QLineEdit, "Text2");
    Text3 = named(new QLineEdit, "Text3");
    Text4 = named(new QLineEdit, "Text4");
    Text5 = named(new QPlainTextEdit, "Text5");
    Text6 = named(new QPlainTextEdit, "Text6");
    Text7 = named(new QPlainTextEdit, "Text7");
    List2 = named(new QListWidget, "List2");
    for (QPlainTextEdit* t : {Text5, Text6, Text7})
        t->setTabChangesFocus(true);
    labelled("Label1", QStringLiteral("Servername / Alias:"), Text1);
    labelled("Label2", QStringLiteral("IP Address / Subnet:"), Text2);
    labelled("Label3", QStringLiteral("Role / Priority:"), Text3);
    labelled("Label4", QStringLiteral("Location / Department:"), Text4);
    Check1 = named(new QCheckBox(QStringLiteral("&Windows server")), "Check1");
    grid->addWidget(Check1, row++, 1);
    if (!kinds_.available())
        Check1->hide();
    labelled("Label5", QStringLiteral("Responsibles / Contact:"), Text5);
    labelled("Label6", QStringLiteral("Action list for monitoring staff:"), Text6);
    labelled("Label7", QStringLiteral("Remarks / Comments:"), Text7);
    labelled("Label8", QStringLiteral("Monitored Services:"), List2);
    List2->setSelectionMode(QAbstractItemView::NoSelection);

    List1 = named(new QListWidget(this), "List1");
    Text9 = named(new QLineEdit(this), "Text9");
    List1->hide();
    Text9->hide();

    Command1 = named(new QPushButton(QStringLiteral("&OK")), "Command1");
    Command2 = named(new QPushButton(QStringLiteral("&Cancel")), "Command2");
    Command1->setDefault(true);
    auto* buttons = new QHBoxLayout;
    buttons->addStretch(1);
    buttons->addWidget(Command1);
    buttons->addWidget(Command2);

    auto* layout = new QVBoxLayout(this);
    layout->addWidget(Frame1, 1);
    layout->addLayout(buttons);
    resize(560, 640);
}

bool PropertiesWindow::openFor(const QString& server)
{
    for (QLineEdit* t : {Text1, Text2, Text3, Text4})
        t->clear();
    for (QPlainTextEdit* t : {Text5, Text6, Text7})
        t->clear();
    List1->clear();
    List2->clear();
    Check1->setChecked(false);
    recordLines_.clear();
    Frame1->setTitle(QStringLiteral("Properties of : ") + server);
    Text9->setText(server);

    if (const QString file = monitored_.reservedFile(server); !file.isEmpty()) {
        boxes_.show(core::reservedNameText(server, file), MsgIcon::Information);
        return false;
    }
    // The file is created on opening, so that the server has one even when nothing is saved.
    const std::optional<core::ServerProperties> props =
        monitored_.ensureFile(server) ? monitored_.properties(server) : std::nullopt;
    if (!props) {
        boxes_.show(QStringLiteral("The properties of %1 could not be read.").arg(server), MsgIcon::Critical);
        return false;
    }
    fill(*props);
    Check1->setChecked(kinds_.isWindows(server));
    show();
    return true;
}

void PropertiesWindow::fill(const core::ServerProperties& props)
{
    recordLines_ = props.recordlines;
    List1->addItems(recordLines_);
    for (const QString& line : recordLines_)
        List2->addItem(line.section(QLatin1Char(';'), 0, 0));
    Text1->setText(props.alias);
    Text2->setText(props.ipaddress);
    Text3->setText(props.role);
    Text4->setText(props.location);
    Text5->setPlainText(shown(props.responsibles));
    Text6->setPlainText(shown(props.staffactions));
    Text7->setPlainText(shown(props.remarks));
}

void PropertiesWindow::save()
{
    core::ServerProperties props;
    props.recordlines = recordLines_;
    props.alias = Text1->text();
    props.ipaddress = Text2->text();
    props.role = Text3->text();
    props.location = Text4->text();
    props.responsibles = stored(Text5);
    props.staffactions = stored(Text6);
    props.remarks = stored(Text7);
    // A file that could not be written keeps the window open with what was typed.
    if (const core::WriteResult r = monitored_.saveProperties(Text9->text(), props); !r) {
        boxes_.show(core::writeFailedText(r), MsgIcon::Critical);
        return;
    }
    // So does a kind that could not be stored; a changed kind closes the server's connections.
    if (!kinds_.choose(Text9->text(), Check1->isChecked()))
        return;
    close();
}

} // namespace velmora::shell
