#include "monitoring/setupwindow.h"

#include "core/datafolder.h"
#include "core/monitoredservices.h"
#include "core/runstate.h"
#include "core/schedule.h"
#include "core/serverlist.h"
#include "core/serverlistfile.h"
#include "monitoring/alertsetupwindow.h"
#include "monitoring/checkcycle.h"
#include "platform/formcontrols.h"
#include "platform/icons.h"
#include "platform/platform.h"
#include "servicecontrol/servicecontrol.h"
#include "servicecontrol/servicelisting.h"

#include <QAction>
#include <QComboBox>
#include <QContextMenuEvent>
#include <QGridLayout>
#include <QHBoxLayout>
#include <QHeaderView>
#include <QLabel>
#include <QLineEdit>
#include <QListWidget>
#include <QMenu>
#include <QMouseEvent>
#include <QPushButton>
#include <QScrollBar>
#include <QTreeWidget>
#include <QVBoxLayout>

namespace velmora::monitoring {

using platform::MsgIcon;

const QString SetupWindow::kSelectService = QStringLiteral("Select service to be monitored");

namespace {

using platform::kTwipsPerPixel;
using platform::named;
constexpr int kMinInterval = 1;
constexpr int kMaxInterval = 240;
constexpr int kKeyRole = Qt::UserRole + 2;

QStringList slotTexts(const core::MonitoredService& entry)
{
    return QStringList(entry.actions.begin(), entry.actions.end());
}

} // namespace

SetupWindow::SetupWindow(core::RunState& state, core::Schedule& schedule, core::ServerList& servers,
                         core::MonitoredServices& monitored, servicecontrol::ServiceControl& services,
                         servicecontrol::ServiceListing& listing, actions::ActionDispatcher& dispatcher,
                         QWidget* parent)
    : QDialog(parent), state_(state), schedule_(schedule), servers_(servers), monitored_(monitored), services_(services),
      listing_(listing), dispatcher_(dispatcher)
{
    setObjectName(QStringLiteral("Form2"));
    setWindowTitle(QStringLiteral("Setup services for monitoring"));
    setModal(false);
    buildControls();
    connect(&listing_, &servicecontrol::ServiceListing::reset, this, &SetupWindow::fillFromListing);
    connect(&listing_, &servicecontrol::ServiceListing::iconChanged, this, [this](int row) {
        if (QTreeWidgetItem* item = ListView1->topLevelItem(row))
            platform::setItemIcon(item, listing_.at(row).icon);
    });
    connect(&monitored_, &core::MonitoredServices::monitoredChanged, this, &SetupWindow::showMonitoredServers);
    connect(&schedule_, &core::Schedule::changed, this, &SetupWindow::showInterval);

    // Loading.
    if (!state_.datafolder.isEmpty()) {
        platform::TextFiles& files = *state_.platform.files;
        const QString interval = state_.file(core::files::interval);
        if (!files.exists(interval))
            files.writeLines(interval, {QStringLiteral("30")});
        schedule_.read(files, interval);
        showMonitoredServers();
    } else {
        schedule_.setText(QStringLiteral("30"));
    }
    fillFromListing();
}

void SetupWindow::showMonitoredServers()
{
    List3->clear();
    List3->addItems(monitored_.storedServers());
}

void SetupWindow::fillFromListing()
{
    ListView1->clear();
    List1->clear();
    for (const servicecontrol::ListedService& s : listing_.rows()) {
        auto* item = new QTreeWidgetItem(ListView1, {s.display});
        item->setData(0, kKeyRole, s.key);
        platform::setItemIcon(item, s.icon);
        List1->addItem(s.key);
    }
}

SetupWindow::~SetupWindow() = default;

void SetupWindow::buildControls()
{
    Label3 = named(new QLabel(QStringLiteral("Monitor Services on Server :")), "Label3");
    QFont bold = Label3->font();
    bold.setBold(true);
    Label3->setFont(bold);

    Label1 = named(new QLabel(QStringLiteral("Services:")), "Label1");
    ListView1 = named(new QTreeWidget, "ListView1");
    ListView1->setHeaderLabels({QStringLiteral("Services:")});
    ListView1->setRootIsDecorated(false);
    ListView1->setUniformRowHeights(true);
    ListView1->setColumnWidth(0, 3600 / kTwipsPerPixel);
    ListView1->setIconSize(QSize(20, 20));
    ListView1->setSelectionMode(QAbstractItemView::SingleSelection);
    ListView1->setMinimumWidth(3600 / kTwipsPerPixel + 24);
    ListView1->viewport()->installEventFilter(this);

    Command1 = named(new QPushButton(QStringLiteral("&Add    -->")), "Command1");
    Command2 = named(new QPushButton(QStringLiteral("&Remove")), "Command2");
    Command7 = named(new QPushButton(QStringLiteral("E&dit..")), "Command7");

    Label7 = named(new QLabel(QStringLiteral("Selected Server:")), "Label7");
    Label6 = named(new QLabel, "Label6");
    Label6->setFont(bold);
    List2 = named(new QListWidget, "List2");
    List7 = named(new QListWidget, "List7");
    List7->setFixedHeight(5 * (List7->fontMetrics().height() + 2) + 8);
    Label8 = named(new QLabel(QStringLiteral("1.\n2.\n3.\n4.\n5.")), "Label8");
    Label8->setAlignment(Qt::AlignTop | Qt::AlignRight);

    Label4 = named(new QLabel(QStringLiteral("Check Service State every")), "Label4");
    Label5 = named(new QLabel, "Label5");
    Label5->setMinimumWidth(fontMetrics().horizontalAdvance(QStringLiteral("0000")));
    Label5->setAlignment(Qt::AlignRight | Qt::AlignVCenter);
    VScroll1 = named(new QScrollBar(Qt::Vertical), "VScroll1");
    VScroll1->setRange(-kMaxInterval, -kMinInterval);
    VScroll1->setSingleStep(1);
    VScroll1->setPageStep(10);
    VScroll1->setFixedHeight(32);
    Label2 = named(new QLabel(QStringLiteral("Minutes.")), "Label2");

    Command3 = named(new QPushButton(QStringLiteral("&OK")), "Command3");
    Command4 = named(new QPushButton(QStringLiteral("&Cancel")), "Command4");

    // Hidden lists that carry data for the visible ones.
    List1 = named(new QListWidget(this), "List1");
    List1->hide();
    List3 = named(new QListWidget(this), "List3");
    List3->hide();

    mnuadd = named(new QMenu(QStringLiteral("add"), this), "mnuadd");
    mnuaddtomonitor = mnuadd->addAction(QStringLiteral("Add to Monitor..."));
    mnuaddtomonitor->setObjectName(QStringLiteral("mnuaddtomonitor"));

    auto* grid = new QGridLayout(this);
    grid->addWidget(Label3, 0, 0, 1, 3);
    grid->addWidget(Label1, 1, 0);
    grid->addWidget(ListView1, 2, 0, 3, 1);
    auto* middle = new QVBoxLayout;
    middle->addStretch();
    middle->addWidget(Command1);
    middle->addWidget(Command2);
    middle->addWidget(Command7);
    middle->addStretch();
    grid->addLayout(middle, 2, 1, 3, 1);
    auto* serverRow = new QHBoxLayout;
    serverRow->addWidget(Label7);
    serverRow->addWidget(Label6, 1);
    grid->addLayout(serverRow, 1, 2);
    grid->addWidget(List2, 2, 2);
    auto* slotRow = new QHBoxLayout;
    slotRow->addWidget(Label8);
    slotRow->addWidget(List7, 1);
    grid->addLayout(slotRow, 3, 2);
    auto* intervalRow = new QHBoxLayout;
    intervalRow->addWidget(Label4);
    intervalRow->addWidget(Label5);
    intervalRow->addWidget(VScroll1);
    intervalRow->addWidget(Label2);
    intervalRow->addStretch();
    grid->addLayout(intervalRow, 4, 2);
    auto* buttons = new QHBoxLayout;
    buttons->addStretch();
    buttons->addWidget(Command3);
    buttons->addWidget(Command4);
    grid->addLayout(buttons, 5, 0, 1, 3);
    grid->setColumnStretch(0, 1);
    grid->setColumnStretch(2, 1);

    connect(VScroll1, &QScrollBar::valueChanged, this, [this](int value) {
        schedule_.setText(QString::number(-value));
    });
    connect(ListView1, &QTreeWidget::itemClicked, this, [this] { serviceClicked(); });
    connect(ListView1, &QTreeWidget::itemDoubleClicked, this, [this] {
        serviceClicked();
        add();
    });
    connect(mnuaddtomonitor, &QAction::triggered, this, &SetupWindow::add);
    connect(List2, &QListWidget::itemClicked, this, [this] { monitoredClicked(); });
    connect(List2, &QListWidget::itemDoubleClicked, this, [this] { edit(); });
    connect(List7, &QListWidget::itemClicked, this, [this](QListWidgetItem* item) { List7->setToolTip(item->text()); });
    connect(Command1, &QPushButton::clicked, this, &SetupWindow::add);
    connect(Command2, &QPushButton::clicked, this, &SetupWindow::remove);
    connect(Command7, &QPushButton::clicked, this, &SetupWindow::edit);
    connect(Command3, &QPushButton::clicked, this, &SetupWindow::ok);
    connect(Command4, &QPushButton::clicked, this, &SetupWindow::cancel);
}

AlertSetupWindow* SetupWindow::alertSetup()
{
    if (!alertSetup_) {
        alertSetup_ = new AlertSetupWindow(*this, state_, dispatcher_);
        connect(alertSetup_, &AlertSetupWindow::emailOptionsRequested, this, &SetupWindow::emailOptionsRequested);
    }
    return alertSetup_;
}

QString SetupWindow::server() const { return Label6->text(); }

bool SetupWindow::event(QEvent* e)
{
    if (e->type() == QEvent::WindowActivate)
        Label1->setText(services_.Label1->text());
    return QDialog::event(e);
}

bool SetupWindow::eventFilter(QObject* watched, QEvent* e)
{
    if (watched == ListView1->viewport() && e->type() == QEvent::MouseButtonPress) {
        auto* me = static_cast<QMouseEvent*>(e);
        if (me->button() == Qt::RightButton) {
            if (QTreeWidgetItem* item = ListView1->itemAt(me->position().toPoint())) {
                ListView1->setCurrentItem(item);
                serviceClicked();
            }
            if (ListView1->topLevelItemCount() == 0) {
                mnuaddtomonitor->setEnabled(false);
                mnuadd->popup(me->globalPosition().toPoint());
            } else if (!ListView1->currentItem() || !ListView1->currentItem()->isSelected()) {
                state_.platform.boxes->show(QStringLiteral("Please select an Item "), MsgIcon::Information);
            } else {
                mnuaddtomonitor->setEnabled(true);
                mnuadd->popup(me->globalPosition().toPoint());
            }
            return true;
        }
    }
    return QDialog::eventFilter(watched, e);
}

// ---------------------------------------------------------------------------------------------
// Opening

void SetupWindow::openFor(const QString& current, std::function<void(bool)> then)
{
    auto finish = [then](bool shown) {
        if (then)
            then(shown);
    };
    if (servers_.isEmpty()) {
        state_.platform.boxes->show(QStringLiteral("No servers listet, please add servers to be monitored"),
                                    MsgIcon::Information);
        finish(false);
        return;
    }
    Label6->setText(current);

    // The listing ends on the user-interface thread, possibly later; when it never starts (the
    // server is known to be unreachable) the window stays closed.
    auto listed = std::make_shared<bool>(false);
    auto connection = std::make_shared<QMetaObject::Connection>();
    *connection = connect(&services_, &servicecontrol::ServiceControl::listingFinished, this,
                          [this, listed, connection, current, finish] {
                              disconnect(*connection);
                              *listed = true;
                              List2->clear();
                              List7->clear();
                              entries_.clear();
                              if (services_.listfailed) {
                                  finish(false);
                                  return;
                              }
                              Label1->setText(services_.Label1->text());
                              Label3->setText(QStringLiteral("Monitor Services on Computer: ") + current);
                              show();
                              raise();
                              activateWindow();
                              loadEntries();
                              finish(true);
                          });
    services_.showServices(true);
    if (!*listed && !services_.busy()) {
        disconnect(*connection);
        finish(false);
    }
}

void SetupWindow::loadEntries()
{
    entries_ = monitored_.records(server());
    for (const core::MonitoredService& e : entries_)
        List2->addItem(e.displayname);
    if (!entries_.empty())
        List7->addItem(kSelectService);
}

void SetupWindow::monitorService(const QString& server, const QString& display)
{
    openFor(server, [this, display](bool shown) {
        if (!shown)
            return;
        const auto items = ListView1->findItems(display, Qt::MatchExactly);
        if (items.isEmpty())
            return;
        ListView1->setCurrentItem(items.first());
        if (alreadyMonitored(display)) {
            state_.platform.boxes->show(QStringLiteral("Item already exists          "), MsgIcon::Information);
            return;
        }
        openAlertSetupForNew(display, selectedService().second);
    });
}

// ---------------------------------------------------------------------------------------------
// Selecting

std::pair<QString, QString> SetupWindow::selectedService() const
{
    QTreeWidgetItem* item = ListView1->currentItem();
    if (!item || !item->isSelected())
        return {};
    return {item->text(0), item->data(0, kKeyRole).toString()};
}

void SetupWindow::serviceClicked()
{
    if (!ListView1->currentItem())
        return;
    const int row = ListView1->indexOfTopLevelItem(ListView1->currentItem());
    if (row >= 0 && row < List1->count())
        List1->setCurrentRow(row);
    alertSetup()->List1->clear();
}

void SetupWindow::monitoredClicked()
{
    const int row = List2->currentRow();
    if (row < 0 || row >= int(entries_.size()))
        return;
    showSlots(entries_[size_t(row)]);
}

void SetupWindow::showSlots(const core::MonitoredService& entry)
{
    List7->clear();
    List7->addItems(slotTexts(entry));
}

bool SetupWindow::alreadyMonitored(const QString& display) const
{
    for (const core::MonitoredService& e : entries_) {
        if (e.displayname.contains(display, Qt::CaseInsensitive))
            return true;
    }
    return false;
}

// ---------------------------------------------------------------------------------------------
// Commands

void SetupWindow::add()
{
    if (ListView1->topLevelItemCount() == 0)
        return;
    const auto [display, service] = selectedService();
    if (display.isNull()) {
        state_.platform.boxes->show(QStringLiteral("Please select a Service!        "), MsgIcon::Information);
        return;
    }
    if (alreadyMonitored(display)) {
        state_.platform.boxes->show(QStringLiteral("Item already exists          "), MsgIcon::Information);
        return;
    }
    openAlertSetupForNew(display, service);
}

void SetupWindow::openAlertSetupForNew(const QString& display, const QString& service)
{
    AlertSetupWindow* form3 = alertSetup();
    form3->setNew(display, service);
    form3->show();
    form3->raise();
    form3->activateWindow();
}

void SetupWindow::remove()
{
    if (entries_.empty()) {
        state_.platform.boxes->show(QStringLiteral("No Services listed!        "), MsgIcon::Information);
        return;
    }
    const int row = List2->currentRow();
    if (row < 0 || row >= int(entries_.size()) || !List2->item(row)->isSelected()) {
        state_.platform.boxes->show(QStringLiteral("Please select a Service!        "), MsgIcon::Information);
        return;
    }
    entries_.erase(entries_.begin() + row);
    delete List2->takeItem(row);
    List7->clear();
}

void SetupWindow::edit()
{
    if (entries_.empty()) {
        state_.platform.boxes->show(QStringLiteral("No Services listed!        "), MsgIcon::Information);
        return;
    }
    const int row = List2->currentRow();
    if (row < 0 || row >= int(entries_.size()) || !List2->item(row)->isSelected()) {
        state_.platform.boxes->show(QStringLiteral("Please select a Service!        "), MsgIcon::Information);
        return;
    }
    AlertSetupWindow* form3 = alertSetup();
    form3->setEdit(row, slotTexts(entries_[size_t(row)]));
    form3->show();
    form3->raise();
    form3->activateWindow();
}

void SetupWindow::appendEntry(const QString& displayname, const QString& servicename, const QStringList& actions)
{
    core::MonitoredService e;
    // A ";" would end the field early in the stored record; display names are only shown and
    // compared, so it is written as ",".
    e.displayname = QString(displayname).replace(QLatin1Char(';'), QLatin1Char(','));
    e.servicename = servicename;
    for (int i = 0; i < 5; ++i)
        e.actions[size_t(i)] = i < actions.size() ? actions[i] : QString();
    entries_.push_back(e);
    List2->addItem(e.displayname);
    if (entries_.size() == 1) {
        showSlots(e);
    } else {
        List7->clear();
        List7->addItem(kSelectService);
    }
}

void SetupWindow::replaceEntry(int position, const QStringList& actions)
{
    if (position < 0 || position >= int(entries_.size()))
        return;
    core::MonitoredService& e = entries_[size_t(position)];
    for (int i = 0; i < 5; ++i)
        e.actions[size_t(i)] = i < actions.size() ? actions[i] : QString();
    showSlots(e);
}

void SetupWindow::showInterval(const QString& minutes)
{
    // Label5 shows the interval as the file gives it ("15 Minutes", "2.5"). The spinner shows 1 to
    // 240 only: a value it cannot show is kept as it is, and the user is told once for each text.
    const int read = core::leadingNumber(minutes);
    const bool spinnable = read >= kMinInterval && read <= kMaxInterval;
    if (!spinnable && minutes != toldInterval_) {
        toldInterval_ = minutes;
        const QString every = read > 0 ? QStringLiteral("every %1 minutes").arg(read)
                                       : QStringLiteral("at every second");
        state_.platform.boxes->show(QStringLiteral("The check interval in the file Interval, \"%1\", cannot be "
                                                   "shown by the spinner (%2 to %3 minutes). Services are checked "
                                                   "%4 until another interval is chosen in \"Setup services for "
                                                   "monitoring\".")
                                        .arg(minutes)
                                        .arg(kMinInterval)
                                        .arg(kMaxInterval)
                                        .arg(every),
                                    MsgIcon::Exclamation);
    }
    const QSignalBlocker block(VScroll1);
    VScroll1->setValue(-std::clamp(read, kMinInterval, kMaxInterval));
    Label5->setText(minutes);
}

bool SetupWindow::saved(const core::WriteResult& result)
{
    if (!result)
        state_.platform.boxes->show(core::writeFailedText(result), MsgIcon::Critical);
    return result.ok();
}

void SetupWindow::ok()
{
    const QString name = server();
    const bool wasMonitored = monitored_.contains(name);
    // Everything is stored before the window goes: a write that fails keeps it open with what
    // the user chose, and the files as they were.
    if (!saved(schedule_.save(*state_.platform.files, state_.file(core::files::interval))))
        return;
    if (!saved(monitored_.save(name, entries_)))
        return;
    hide();

    // The server's icon follows whether it is monitored now.
    if (entries_.empty())
        servers_.setMonitored(name, false);
    else if (!wasMonitored)
        servers_.setIcon(name, 9);
    showMonitoredServers();
}

void SetupWindow::cancel() { hide(); }

} // namespace velmora::monitoring
