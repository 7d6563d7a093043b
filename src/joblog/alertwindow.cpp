#include "joblog/alertwindow.h"

#include "core/timestamps.h"
#include "joblog/logandalerts.h"

#include <QAction>
#include <QApplication>
#include <QStyle>
#include <QFontMetrics>
#include <QCheckBox>
#include <QCloseEvent>
#include <QHBoxLayout>
#include <QHeaderView>
#include <QLabel>
#include <QMenu>
#include <QMouseEvent>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QTreeWidget>
#include <QVBoxLayout>

#include <climits>

namespace velmora::joblog {

namespace {

constexpr int kTwipsPerPixel = 15;
const QColor kRed(255, 0, 0); // colour value 255
const QString kTitle = QStringLiteral("Velmora Info");

template <typename T>
T* named(T* widget, const char* name)
{
    widget->setObjectName(QString::fromLatin1(name));
    return widget;
}

int twips(const QString& text)
{
    return text.trimmed().toInt(); // empty or damaged: 0, "no position known"
}

} // namespace

const int AlertWindow::kColumnTwips[6] = {1000, 1000, 1500, 2000, 3000, 6000};

AlertWindow::AlertWindow(LogAndAlerts& owner, QWidget* parent) : QWidget(parent, Qt::Window), owner_(owner)
{
    setObjectName(QStringLiteral("Form4"));
    setAttribute(Qt::WA_DeleteOnClose); // the close box unloads the window and its rows

    Label1 = named(new QLabel, "Label1");
    Label2 = named(new QLabel(QStringLiteral("Failed Services :")), "Label2");
    Text1 = named(new QPlainTextEdit, "Text1");
    Text1->setReadOnly(true);
    Text1->hide();
    ListView1 = named(new QTreeWidget, "ListView1");
    ListView1->setRootIsDecorated(false);
    ListView1->setUniformRowHeights(true);
    ListView1->setSelectionMode(QAbstractItemView::SingleSelection);
    ListView1->setAllColumnsShowFocus(true);
    ListView1->header()->setStretchLastSection(false);
    ListView1->viewport()->installEventFilter(this);
    Label3 = named(new QLabel, "Label3");
    Label3->setAutoFillBackground(true);
    Label3->setFrameShape(QFrame::Panel);
    Label3->setFrameShadow(QFrame::Sunken);
    Check1 = named(new QCheckBox(QStringLiteral(
                       "Do not popup this window automatically if services have failed, this window will be "
                       "poped up on checking services manually.")),
                   "Check1");
    Command1 = named(new QPushButton(QStringLiteral("Cl&ose")), "Command1");
    Command2 = named(new QPushButton(QStringLiteral("Cl&ear")), "Command2");
    Command3 = named(new QPushButton(QStringLiteral("Reset &Signal")), "Command3");
    Command4 = named(new QPushButton(QStringLiteral("&Check Services")), "Command4");

    mnuf4context = named(new QMenu(this), "mnuf4context");
    mnuf4gotoservice = mnuf4context->addAction(QStringLiteral("Goto service..."));
    mnuf4gotoservice->setObjectName(QStringLiteral("mnuf4gotoservice"));
    mnuf4journal = mnuf4context->addAction(QStringLiteral("Show Journal..."));
    mnuf4journal->setObjectName(QStringLiteral("mnuf4journal"));
    mnuf4acknowledge = mnuf4context->addAction(QStringLiteral("Acknowledge"));
    mnuf4acknowledge->setObjectName(QStringLiteral("mnuf4acknowledge"));

    auto* layout = new QVBoxLayout(this);
    auto* heading = new QHBoxLayout;
    heading->addWidget(Label2);
    heading->addStretch(1);
    heading->addWidget(Label1);
    layout->addLayout(heading);
    layout->addWidget(ListView1, 1);
    layout->addWidget(Text1);
    auto* indicator = new QHBoxLayout;
    indicator->addWidget(Label3);
    indicator->addStretch(1);
    layout->addLayout(indicator);
    layout->addWidget(Check1);
    auto* buttons = new QHBoxLayout;
    buttons->addWidget(Command4);
    buttons->addWidget(Command3);
    buttons->addStretch(1);
    buttons->addWidget(Command2);
    buttons->addWidget(Command1);
    layout->addLayout(buttons);
    resize(900, 420);

    // Loading: caption, remembered position, popup option, columns.
    setWindowTitle(kTitle);
    const core::SettingsRecord& settings = owner_.state().settings;
    if (const int left = twips(settings.alertleft); left != 0)
        move(left / kTwipsPerPixel, twips(settings.alerttop) / kTwipsPerPixel);
    setCheckFromOption();
    const QStringList columns{QStringLiteral("Date:"), QStringLiteral("Time:"), QStringLiteral("Computer:"),
                              QStringLiteral("Service:"), QStringLiteral("State:"),
                              QStringLiteral("Action if Service Fails:")};
    ListView1->setColumnCount(int(columns.size()));
    ListView1->setHeaderLabels(columns);
    for (int c = 0; c < 6; ++c)
        ListView1->setColumnWidth(c, qRound(kColumnTwips[c] / double(kTwipsPerPixel)));

    connect(Check1, &QCheckBox::toggled, this, [this](bool checked) { owner_.state().settings.popupalert = !checked; });
    connect(Command1, &QPushButton::clicked, this, [this] {
        rememberPosition(INT_MIN, INT_MIN);
        hide();
    });
    connect(Command2, &QPushButton::clicked, this, [this] { owner_.clearalert(); });
    connect(Command3, &QPushButton::clicked, this, [this] { owner_.resetalert(); });
    connect(Command4, &QPushButton::clicked, this, [this] {
        owner_.requestCheckNow();
    });
    connect(mnuf4gotoservice, &QAction::triggered, this, &AlertWindow::gotoservice);
    connect(ListView1, &QTreeWidget::itemDoubleClicked, this, &AlertWindow::gotoservice);
    connect(mnuf4journal, &QAction::triggered, this, [this] {
        if (const AlertRow* r = selectedRow())
            owner_.requestJournal(r->server, r->service);
    });
    connect(mnuf4acknowledge, &QAction::triggered, this, [this] {
        if (const AlertRow* r = selectedRow())
            owner_.requestAcknowledge(r->server, r->service);
    });

    AlertRows& rows = owner_.rows();
    connect(&rows, &AlertRows::rowsInserted, this,
            [this](const QModelIndex&, int first, int last) { showRows(first, last); });
    connect(&rows, &AlertRows::modelReset, ListView1, &QTreeWidget::clear);
    connect(&rows, &AlertRows::dataChanged, this,
            [this](const QModelIndex& first, const QModelIndex& last) { showRecovered(first.row(), last.row()); });
    if (rows.count() > 0)
        showRows(0, rows.count() - 1);
}

AlertWindow::~AlertWindow() = default;

void AlertWindow::showRows(int first, int last)
{
    const AlertRows& rows = owner_.rows();
    const QFontMetrics metrics(ListView1->font());
    const int margin = 2 * ListView1->style()->pixelMetric(QStyle::PM_FocusFrameHMargin, nullptr, ListView1) + 12;
    for (int r = first; r <= last; ++r) {
        const AlertRow& row = rows.at(r);
        auto* item = new QTreeWidgetItem(
            QStringList{row.date, row.time, row.server, row.service, row.state, row.actions});
        if (row.red) {
            for (int c = AlertRows::Server; c <= AlertRows::State; ++c)
                item->setForeground(c, kRed);
        }
        ListView1->addTopLevelItem(item);
        // A column widens to what it shows (a date, a long service name), never narrows below
        // its starting width; the new row's texts are measured, not the whole list again.
        for (int c = 0; c < ListView1->columnCount(); ++c) {
            const int needed = metrics.horizontalAdvance(item->text(c)) + margin;
            if (needed > ListView1->columnWidth(c))
                ListView1->setColumnWidth(c, needed);
        }
    }
}

void AlertWindow::showRecovered(int first, int last)
{
    const AlertRows& rows = owner_.rows();
    for (int r = first; r <= last && r < ListView1->topLevelItemCount(); ++r) {
        QTreeWidgetItem* item = ListView1->topLevelItem(r);
        item->setText(AlertRows::State, rows.at(r).state);
        if (rows.at(r).recovered) {
            for (int c = AlertRows::Server; c <= AlertRows::State; ++c)
                item->setForeground(c, QColor(Qt::darkGreen));
        }
    }
}

void AlertWindow::setLogSize(qint64 bytes, std::optional<SizeCaption> caption)
{
    shownBytes_ = bytes;
    QPalette palette = Label3->palette();
    const bool red = logIsLarge(bytes) || !lostLines_.isEmpty();
    palette.setColor(QPalette::Window, red ? kRed : QApplication::palette().color(QPalette::Button));
    Label3->setPalette(palette);
    if (!lostLines_.isEmpty())
        Label3->setText(lostLines_);
    else if (caption)
        Label3->setText(logSizeText(bytes, *caption));
}

void AlertWindow::setLostLines(const QString& text)
{
    if (text == lostLines_)
        return;
    lostLines_ = text;
    setWindowTitle(text.isEmpty() ? kTitle : kTitle + QStringLiteral(" - the job log is not being written"));
    setLogSize(shownBytes_, SizeCaption::Activation);
}

bool AlertWindow::logSizeIsRed() const
{
    return Label3->palette().color(QPalette::Window) == kRed;
}

void AlertWindow::setCheckFromOption()
{
    Check1->setChecked(!owner_.state().settings.popupalert);
}

void AlertWindow::rememberPosition(int minLeft, int minTop)
{
    core::SettingsRecord& settings = owner_.state().settings;
    const QPoint at = pos();
    if (at.x() >= minLeft)
        settings.alertleft = QString::number(at.x() * kTwipsPerPixel);
    if (at.y() >= minTop)
        settings.alerttop = QString::number(at.y() * kTwipsPerPixel);
}

void AlertWindow::activate()
{
    setCheckFromOption();
    // A window pushed off the left edge, or touching the top, does not overwrite the position.
    rememberPosition(0, 1);
    if (isMinimized())
        showNormal();
    owner_.updatelogsize(SizeCaption::Activation);
}

bool AlertWindow::event(QEvent* e)
{
    if (e->type() == QEvent::WindowActivate)
        activate();
    return QWidget::event(e);
}

void AlertWindow::closeEvent(QCloseEvent* e)
{
    rememberPosition(1, 0);
    QWidget::closeEvent(e);
}

bool AlertWindow::eventFilter(QObject* watched, QEvent* e)
{
    if (watched == ListView1->viewport() && e->type() == QEvent::MouseButtonPress) {
        auto* me = static_cast<QMouseEvent*>(e);
        if (me->button() == Qt::RightButton) {
            if (QTreeWidgetItem* item = ListView1->itemAt(me->position().toPoint()))
                ListView1->setCurrentItem(item);
            listRightButton(me->globalPosition().toPoint());
            return true;
        }
    }
    return QWidget::eventFilter(watched, e);
}

void AlertWindow::listRightButton(const QPoint& globalPos)
{
    // "Show Journal..." and "Acknowledge" are there while the alert options use them.
    mnuf4journal->setVisible(owner_.journalShown());
    mnuf4acknowledge->setVisible(owner_.acknowledgeShown());
    const auto enable = [this](bool on) {
        for (QAction* a : {mnuf4gotoservice, mnuf4journal, mnuf4acknowledge})
            a->setEnabled(on);
    };
    if (ListView1->topLevelItemCount() == 0) {
        enable(false);
        mnuf4context->popup(globalPos);
    } else if (!ListView1->currentItem()) {
        owner_.state().platform.boxes->show(QStringLiteral("Please select an Item "), platform::MsgIcon::Information);
    } else {
        enable(true);
        mnuf4context->popup(globalPos);
    }
}

void AlertWindow::gotoservice()
{
    if (ListView1->topLevelItemCount() == 0)
        return;
    if (const AlertRow* r = selectedRow())
        owner_.requestGotoService(r->server, r->service);
}

const AlertRow* AlertWindow::selectedRow() const
{
    const int row = ListView1->indexOfTopLevelItem(ListView1->currentItem());
    return row >= 0 && row < owner_.rows().count() ? &owner_.rows().at(row) : nullptr;
}

} // namespace velmora::joblog
