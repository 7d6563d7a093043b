#include "monitoring/alertsetupwindow.h"

#include "actions/dispatcher.h"
#include "core/datafolder.h"
#include "core/runstate.h"
#include "monitoring/setupwindow.h"
#include "platform/platform.h"

#include <QAction>
#include <QComboBox>
#include <QEvent>
#include <QGridLayout>
#include <QGroupBox>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QListWidget>
#include <QPushButton>
#include <QVBoxLayout>

namespace velmora::monitoring {

using platform::MsgIcon;

const QStringList AlertSetupWindow::kKinds{actions::kind::alert,      actions::kind::playsound,
                                           actions::kind::restart,    actions::kind::email,
                                           actions::kind::netmessage, actions::kind::program};

namespace {

template <typename T>
T* named(T* widget, const char* name)
{
    widget->setObjectName(QString::fromLatin1(name));
    return widget;
}

// The longest path the "Start program:" and "Play Sound:" actions take from an entry.
constexpr int kMaxPath = 255;

// A parameter that would break the stored record: a ";" ends the field, a line break the line.
bool breaksRecord(const QString& parameter)
{
    return parameter.contains(QLatin1Char(';')) || parameter.contains(QLatin1Char('\n')) ||
           parameter.contains(QLatin1Char('\r'));
}

} // namespace

AlertSetupWindow::AlertSetupWindow(SetupWindow& setup, core::RunState& state, actions::ActionDispatcher& dispatcher)
    : QDialog(&setup), setup_(setup), state_(state), dispatcher_(dispatcher)
{
    setObjectName(QStringLiteral("Form3"));
    setWindowTitle(QStringLiteral("Setup Alert"));
    setModal(false);
    buildControls();
    // Loading.
    Text1->clear();
    Text2->clear();
    Combo1->setCurrentIndex(0);
    kindChosen();
}

void AlertSetupWindow::buildControls()
{
    Frame1 = named(new QGroupBox(QStringLiteral("Monitoring Options :")), "Frame1");
    Label1 = named(new QLabel(QStringLiteral("If Service fails: (select action and add to list)")), "Label1");
    Combo1 = named(new QComboBox, "Combo1");
    Combo1->addItems(kKinds);
    Label2 = named(new QLabel(QStringLiteral("Email Address :")), "Label2");
    Text1 = named(new QLineEdit, "Text1");
    Label3 = named(new QLabel(QStringLiteral("Start Program/Sound:")), "Label3");
    Text2 = named(new QLineEdit, "Text2");
    Command3 = named(new QPushButton(QStringLiteral("&Browse...")), "Command3");
    Label4 = named(new QLabel(QStringLiteral("Net Send Recipient:")), "Label4");
    Text3 = named(new QLineEdit, "Text3");
    Command8 = named(new QPushButton(QStringLiteral("&Test Net Send")), "Command8");
    Command4 = named(new QPushButton(QStringLiteral("&Add to action list")), "Command4");
    Label5 = named(new QLabel(QStringLiteral("Action List :")), "Label5");
    List1 = named(new QListWidget, "List1");
    List1->setFixedHeight(5 * (List1->fontMetrics().height() + 2) + 8);
    Command5 = named(new QPushButton(QStringLiteral("&Remove from list")), "Command5");
    Command6 = named(new QPushButton(QStringLiteral("&Up")), "Command6");
    Command7 = named(new QPushButton(QStringLiteral("&Down")), "Command7");
    Label10 = named(new QLabel(QStringLiteral(
                        "If mailalert is in the last position, results of the previous actions will be added to the mail.")),
                    "Label10");
    Label10->setWordWrap(true);
    Command1 = named(new QPushButton(QStringLiteral("&OK")), "Command1");
    Command2 = named(new QPushButton(QStringLiteral("C&ancel")), "Command2");

    auto* frame = new QGridLayout(Frame1);
    frame->addWidget(Label1, 0, 0, 1, 3);
    frame->addWidget(Combo1, 1, 0, 1, 2);
    frame->addWidget(Label2, 2, 0);
    frame->addWidget(Text1, 2, 1);
    frame->addWidget(Label3, 3, 0);
    frame->addWidget(Text2, 3, 1);
    frame->addWidget(Command3, 3, 2);
    frame->addWidget(Label4, 4, 0);
    frame->addWidget(Text3, 4, 1);
    frame->addWidget(Command8, 4, 2);
    frame->addWidget(Command4, 5, 1);
    frame->addWidget(Label5, 6, 0, 1, 3);
    auto* numbers = new QVBoxLayout;
    numbers->setSpacing(0);
    for (int i = 1; i <= kMaxActions; ++i) {
        auto* label = new QLabel(QStringLiteral("Action %1:").arg(i));
        label->setObjectName(QStringLiteral("Label%1").arg(10 + i));
        numbers->addWidget(label);
    }
    numbers->addStretch();
    frame->addLayout(numbers, 7, 0);
    frame->addWidget(List1, 7, 1);
    auto* listButtons = new QVBoxLayout;
    listButtons->addWidget(Command5);
    listButtons->addWidget(Command6);
    listButtons->addWidget(Command7);
    listButtons->addStretch();
    frame->addLayout(listButtons, 7, 2);
    frame->addWidget(Label10, 8, 0, 1, 3);
    frame->setColumnStretch(1, 1);

    auto* top = new QVBoxLayout(this);
    top->addWidget(Frame1);
    auto* buttons = new QHBoxLayout;
    buttons->addStretch();
    buttons->addWidget(Command1);
    buttons->addWidget(Command2);
    top->addLayout(buttons);
    resize(560, sizeHint().height());

    connect(Combo1, &QComboBox::currentIndexChanged, this, [this] { kindChosen(); });
    connect(Command4, &QPushButton::clicked, this, &AlertSetupWindow::addToList);
    connect(Command5, &QPushButton::clicked, this, &AlertSetupWindow::removeFromList);
    connect(Command6, &QPushButton::clicked, this, &AlertSetupWindow::moveUp);
    connect(Command7, &QPushButton::clicked, this, &AlertSetupWindow::moveDown);
    connect(Command3, &QPushButton::clicked, this, &AlertSetupWindow::browse);
    connect(Command8, &QPushButton::clicked, this, &AlertSetupWindow::testNetSend);
    connect(Command1, &QPushButton::clicked, this, &AlertSetupWindow::ok);
    connect(Command2, &QPushButton::clicked, this, &AlertSetupWindow::cancel);
    connect(List1, &QListWidget::itemClicked, this, [this](QListWidgetItem* item) { List1->setToolTip(item->text()); });
    // The full text of a long address or path, on hovering.
    for (QLineEdit* field : {Text1, Text2})
        connect(field, &QLineEdit::textChanged, field, [field](const QString& text) { field->setToolTip(text); });
}

bool AlertSetupWindow::event(QEvent* e)
{
    if (e->type() == QEvent::WindowActivate)
        Command4->setDefault(true);
    return QDialog::event(e);
}

void AlertSetupWindow::setNew(const QString& displayname, const QString& servicename)
{
    mode_ = Mode::New;
    editPosition_ = -1;
    newDisplay_ = displayname;
    newService_ = servicename;
    Frame1->setTitle(QStringLiteral("Monitoring Options for Service : ") + displayname);
}

void AlertSetupWindow::setEdit(int position, const QStringList& actions)
{
    List1->clear();
    for (const QString& a : actions) {
        if (!a.isEmpty())
            List1->addItem(a);
    }
    mode_ = Mode::Edit;
    editPosition_ = position;
}

QStringList AlertSetupWindow::actions() const
{
    QStringList out;
    for (int i = 0; i < List1->count(); ++i)
        out << List1->item(i)->text();
    return out;
}

void AlertSetupWindow::setField(QLineEdit* field, bool enabled)
{
    if (!enabled)
        field->clear();
    field->setEnabled(enabled);
    // Disabled: the inactive border colour; enabled: the window background.
    QPalette pal = field->palette();
    pal.setColor(QPalette::Base, enabled ? palette().color(QPalette::Active, QPalette::Base)
                                         : palette().color(QPalette::Active, QPalette::Window));
    field->setPalette(pal);
}

void AlertSetupWindow::kindChosen()
{
    const QString kind = Combo1->currentText();
    setField(Text1, kind == actions::kind::email);
    const bool net = kind == actions::kind::netmessage;
    setField(Text3, net);
    Command8->setEnabled(net);
    const bool file = kind == actions::kind::playsound || kind == actions::kind::program;
    setField(Text2, file);
    Command3->setEnabled(file);
}

void AlertSetupWindow::addToList()
{
    platform::MessageBoxes& boxes = *state_.platform.boxes;
    if (List1->count() >= kMaxActions)
        return;
    const QString kind = Combo1->currentText();
    if (kind == actions::kind::alert || kind == actions::kind::restart) {
        for (const QString& entry : actions()) {
            if (entry.contains(kind, Qt::CaseInsensitive)) {
                boxes.show(QStringLiteral("Item already exists          "), MsgIcon::Information);
                return;
            }
        }
    }
    // The parameter is taken as typed; only what would break the stored record is refused.
    if (kind == actions::kind::email && (Text1->text().isEmpty() || breaksRecord(Text1->text()))) {
        boxes.show(QStringLiteral("No Valid Email Address !"), MsgIcon::Information);
        return;
    }
    if (kind == actions::kind::netmessage && (Text3->text().isEmpty() || breaksRecord(Text3->text()))) {
        boxes.show(QStringLiteral("No Valid Net Message Recipient !"), MsgIcon::Information);
        return;
    }
    if (kind == actions::kind::program && (Text2->text().isEmpty() || breaksRecord(Text2->text()))) {
        boxes.show(QStringLiteral("  No Valid Program !"), MsgIcon::Information);
        return;
    }
    if (kind == actions::kind::playsound && breaksRecord(Text2->text())) {
        boxes.show(QStringLiteral("No Valid Sound File !"), MsgIcon::Information);
        return;
    }
    if (kind == actions::kind::email) {
        platform::TextFiles& files = *state_.platform.files;
        if (!files.exists(state_.file(core::files::smtpserver)) && !files.exists(state_.file(core::files::mailprofile))) {
            // No mail transport yet: the e-mail options come up instead.
            emit emailOptionsRequested();
            return;
        }
    }
    QString entry = kind;
    if (kind == actions::kind::email)
        entry += QLatin1Char(' ') + Text1->text();
    else if (kind == actions::kind::netmessage)
        entry += QLatin1Char(' ') + Text3->text();
    else if (kind == actions::kind::program || kind == actions::kind::playsound)
        entry += QLatin1Char(' ') + Text2->text();
    List1->addItem(entry);
}

int AlertSetupWindow::selectedRow() const
{
    QListWidgetItem* item = List1->currentItem();
    return item && item->isSelected() ? List1->row(item) : -1;
}

bool AlertSetupWindow::listChecks()
{
    platform::MessageBoxes& boxes = *state_.platform.boxes;
    if (List1->count() == 0) {
        boxes.show(QStringLiteral("No Action listed!        "), MsgIcon::Information);
        return false;
    }
    if (selectedRow() < 0) {
        boxes.show(QStringLiteral("Please select an Item!        "), MsgIcon::Information);
        return false;
    }
    return true;
}

void AlertSetupWindow::removeFromList()
{
    if (!listChecks())
        return;
    delete List1->takeItem(selectedRow());
    List1->setCurrentRow(-1);
}

void AlertSetupWindow::moveUp()
{
    if (!listChecks())
        return;
    const int row = selectedRow();
    if (row > 0)
        List1->insertItem(row - 1, List1->takeItem(row));
    List1->setCurrentRow(-1);
    List1->clearSelection();
}

void AlertSetupWindow::moveDown()
{
    if (!listChecks())
        return;
    const int row = selectedRow();
    if (row < List1->count() - 1)
        List1->insertItem(row + 1, List1->takeItem(row));
    List1->setCurrentRow(-1);
    List1->clearSelection();
}

void AlertSetupWindow::browse()
{
    const QString kind = Combo1->currentText();
    const bool sound = kind == actions::kind::playsound;
    const QString chosen = state_.platform.filedialogs->openFile(
        this, QStringLiteral("Select File:"), sound ? QStringLiteral("Soundfiles (*.wav)") : QStringLiteral("All Files (*.*)"),
        sound ? QStringLiteral("*.wav") : QStringLiteral("*.*"));
    // A path the action could not take whole is refused as the classic 256-character buffer did.
    if (chosen.isEmpty() || chosen.size() > kMaxPath)
        return;
    Text2->setText(chosen);
}

void AlertSetupWindow::testNetSend()
{
    if (Text3->text().isEmpty()) {
        state_.platform.boxes->show(QStringLiteral("Please enter a Net Message Recipient !    "),
                                                 MsgIcon::Information);
        return;
    }
    dispatcher_.testnetsend(Text3->text());
}

void AlertSetupWindow::ok()
{
    if (List1->count() == 0) {
        state_.platform.boxes->show(
            QStringLiteral("There are no actions in the actions list, please configure actions to be taken if service fails !    "),
            MsgIcon::Exclamation);
        return;
    }
    if (mode_ == Mode::New) {
        // The window is modeless: a service selected in the setup window meanwhile wins.
        auto [display, service] = setup_.selectedService();
        if (display.isNull()) {
            display = newDisplay_;
            service = newService_;
        }
        setup_.appendEntry(display, service, actions());
    } else {
        setup_.replaceEntry(editPosition_, actions());
    }
    hide();
}

void AlertSetupWindow::cancel() { hide(); }

} // namespace velmora::monitoring
