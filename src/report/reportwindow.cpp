#include "report/reportwindow.h"

#include "platform/formcontrols.h"
#include "report/automatedialog.h"
#include "report/filterdialog.h"
#include "report/reportexport.h"

#include <QApplication>
#include <QCloseEvent>
#include <QGridLayout>
#include <QGuiApplication>
#include <QHBoxLayout>
#include <QIdentityProxyModel>
#include <QLabel>
#include <QMenuBar>
#include <QMessageBox>
#include <QMouseEvent>
#include <QRadioButton>
#include <QScreen>
#include <QScrollBar>
#include <QTreeView>
#include <QVBoxLayout>

#include <climits>
#include <memory>
#include <optional>

namespace velmora::report {

using platform::kTwipsPerPixel;
using platform::menuItem;
using platform::menuSeparator;
using platform::MsgAnswer;
using platform::MsgButtons;
using platform::MsgIcon;
using platform::named;

namespace {

// The rows as the list draws them: a cell's colour value becomes its pen.
class ColouredRows : public QIdentityProxyModel {
public:
    using QIdentityProxyModel::QIdentityProxyModel;
    QVariant data(const QModelIndex& index, int role) const override
    {
        if (role == Qt::ForegroundRole) {
            const int value = QIdentityProxyModel::data(index, ReportRows::ColourRole).toInt();
            if (value < 0)
                return {};
            // Colour values hold red in the low byte and blue in the high byte.
            return QColor(value & 0xFF, (value >> 8) & 0xFF, (value >> 16) & 0xFF);
        }
        return QIdentityProxyModel::data(index, role);
    }
};

int twips(const QString& text) { return text.trimmed().toInt(); }

const QString kSaveBeforeClearing = QStringLiteral("Do you want to save the contents before clearing ?       ");
const QString kSaveBeforeClosing = QStringLiteral("Do you want to save the contents before closing  ?       ");

} // namespace

const int ReportWindow::kColumnTwips[kColumnCount] = {1500, 1500, 1500, 1500, 2000, 4000, 2000};

ReportWindow::ReportWindow(core::RunState& state, monitoring::CheckCycle& checks, QWidget* parent)
    : QMainWindow(parent), state_(state)
{
    setObjectName(QStringLiteral("Form9"));
    setAttribute(Qt::WA_DeleteOnClose); // the close box unloads the report and its rows
    cycle_ = new ReportCycle(state_, checks, rows_, this);
    connect(qApp, &QApplication::focusChanged, this, [this](QWidget*, QWidget* now) {
        if (now && now->window() != this)
            focusInBox_ = qobject_cast<QMessageBox*>(now->window()) != nullptr;
    });
    buildControls();
    buildMenus();

    // Loading: caption and placement, the timer, the interval, the columns, the first scan.
    setWindowTitle(QStringLiteral("Velmora Instant Report"));
    const core::SettingsRecord& s = state_.settings;
    if (twips(s.reportheight) != 0) {
        move(twips(s.reportleft) / kTwipsPerPixel, twips(s.reporttop) / kTwipsPerPixel);
        resize(twips(s.reportwidth) / kTwipsPerPixel, twips(s.reportheight) / kTwipsPerPixel);
    }
    Timer1->setEnabled(true);
    const int stored = s.reportinterval.trimmed().toInt();
    VScroll1->setValue(stored != 0 ? -std::abs(stored) : -5);
    intervalChanged(VScroll1->value());
    cycle_->firstScan(intervalMinutes());
}

ReportWindow::~ReportWindow()
{
    ListView1->setModel(nullptr);
    delete cycle_;
}

void ReportWindow::buildControls()
{
    Timer1 = state_.platform.clock->createTimer(this, QStringLiteral("Timer1"), 1000);

    auto* central = new QWidget;
    ListView1 = named(new QTreeView, "ListView1");
    ListView1->setRootIsDecorated(false);
    ListView1->setUniformRowHeights(true);
    ListView1->setItemsExpandable(false);
    ListView1->setSelectionMode(QAbstractItemView::SingleSelection);
    ListView1->setSelectionBehavior(QAbstractItemView::SelectRows);
    ListView1->setAllColumnsShowFocus(true);
    ListView1->setEditTriggers(QAbstractItemView::NoEditTriggers);
    auto* shown = new ColouredRows(ListView1);
    shown->setSourceModel(&rows_);
    ListView1->setModel(shown);
    ListView1->header()->setStretchLastSection(false);
    ListView1->header()->setSectionsClickable(true);
    ListView1->header()->setSortIndicatorShown(true);
    for (int c = 0; c < kColumnCount; ++c)
        ListView1->setColumnWidth(c, qRound(kColumnTwips[c] / double(kTwipsPerPixel)));
    ListView1->viewport()->installEventFilter(this);

    Label2 = named(new QLabel(QStringLiteral("Set Interval for reporting Services:")), "Label2");
    Label1 = named(new QLabel, "Label1");
    VScroll1 = named(new QScrollBar(Qt::Vertical), "VScroll1");
    VScroll1->setRange(-60, -1);
    VScroll1->setFixedHeight(32);
    Label3 = named(new QLabel(QStringLiteral("Minutes")), "Label3");
    Label4 = named(new QLabel(QStringLiteral("Next Scan :")), "Label4");
    Label5 = named(new QLabel(QStringLiteral("Sortorder:")), "Label5");
    Option1 = named(new QRadioButton(QStringLiteral("Ascending")), "Option1");
    Option2 = named(new QRadioButton(QStringLiteral("Descending")), "Option2");

    auto* top = new QHBoxLayout;
    top->addWidget(Label2);
    top->addWidget(Label1);
    top->addWidget(VScroll1);
    top->addWidget(Label3);
    top->addStretch(1);
    top->addWidget(Label5);
    top->addWidget(Option1);
    top->addWidget(Option2);
    // The status line may be cut short rather than hold the window wide.
    Label4->setSizePolicy(QSizePolicy::Ignored, QSizePolicy::Preferred);
    auto* layout = new QVBoxLayout(central);
    layout->addLayout(top);
    layout->addWidget(Label4);
    layout->addWidget(ListView1, 1);
    setCentralWidget(central);
    resize(1000, 480);

    connect(Timer1, &platform::Timer::timeout, this, [this] { cycle_->tick(intervalMinutes()); });
    connect(VScroll1, &QScrollBar::valueChanged, this, &ReportWindow::intervalChanged);
    connect(Option1, &QRadioButton::clicked, this, [this] { state_.settings.reportascending = true; });
    connect(Option2, &QRadioButton::clicked, this, [this] { state_.settings.reportascending = false; });
    connect(ListView1->header(), &QHeaderView::sectionClicked, this, &ReportWindow::columnClick);
    connect(ListView1, &QTreeView::doubleClicked, this, &ReportWindow::gotoservice);
    connect(cycle_, &ReportCycle::statusChanged, Label4, &QLabel::setText);
    connect(cycle_, &ReportCycle::busy, this, [this](bool on) {
        if (on)
            setCursor(Qt::WaitCursor);
        else
            unsetCursor();
    });
}

void ReportWindow::buildMenus()
{
    mnufile = named(menuBar()->addMenu(QStringLiteral("&File")), "mnufile");
    mnuexport = menuItem(mnufile, "mnuexport", QStringLiteral("Export in Textfile..."));
    mnuclose = menuItem(mnufile, "mnuclose", QStringLiteral("Exit"));
    mnureport = named(menuBar()->addMenu(QStringLiteral("&Report")), "mnureport");
    mnustopreport = menuItem(mnureport, "mnustopreport", QStringLiteral("Stop Report"));
    mnustartreport = menuItem(mnureport, "mnustartreport", QStringLiteral("Start Report"));
    mnufilter = menuItem(mnureport, "mnufilter", QStringLiteral("Filter..."));
    mnuautomate = menuItem(mnureport, "mnuautomate", QStringLiteral("Automate..."));
    menuSeparator(mnureport, "mnuseparator");
    mnuclear = menuItem(mnureport, "mnuclear", QStringLiteral("Clear Contents"));
    mnucontext = named(new QMenu(this), "mnucontext");
    mnugotoservice = menuItem(mnucontext, "mnugotoservice", QStringLiteral("Goto Service..."));
    menuSeparator(mnucontext, "mnucontextseparator");
    mnuaknowledge = menuItem(mnucontext, "mnuaknowledge", QStringLiteral("Acknowledge"));
    mnushowproperties = menuItem(mnucontext, "mnushowproperties", QStringLiteral("Properties..."));
    mnuavailability = menuItem(mnucontext, "mnuavailability", QStringLiteral("Availability..."));
    mnujournal = menuItem(mnucontext, "mnujournal", QStringLiteral("Show Journal..."));
    mnujournal->setVisible(false);

    connect(mnuexport, &QAction::triggered, this, [this] { exportreport(); });
    connect(mnuclose, &QAction::triggered, this, &ReportWindow::exitReport);
    connect(mnustopreport, &QAction::triggered, cycle_, &ReportCycle::stop);
    connect(mnustartreport, &QAction::triggered, cycle_, &ReportCycle::start);
    connect(mnufilter, &QAction::triggered, this, [this] {
        FilterDialog* d = filterDialog();
        d->show();
        d->raise();
    });
    connect(mnuautomate, &QAction::triggered, this, [this] {
        AutomateDialog* d = automateDialog();
        d->show();
        d->raise();
    });
    connect(mnuclear, &QAction::triggered, this, &ReportWindow::clearContents);
    connect(mnugotoservice, &QAction::triggered, this, &ReportWindow::gotoservice);
    connect(mnuaknowledge, &QAction::triggered, this, &ReportWindow::acknowledge);
    connect(mnujournal, &QAction::triggered, this, [this] {
        if (const int row = selectedRow(); row >= 0)
            emit journalRequested(rows_.at(row).texts[ComputerColumn], rows_.at(row).texts[ServiceColumn]);
    });
    connect(mnushowproperties, &QAction::triggered, this, &ReportWindow::showproperties);
    connect(mnuavailability, &QAction::triggered, this, [this] {
        if (const int row = selectedRow(); row >= 0)
            emit availabilityRequested(rows_.at(row).texts[ComputerColumn], rows_.at(row).texts[ServiceColumn]);
    });
}

FilterDialog* ReportWindow::filterDialog()
{
    if (!filter_) {
        filter_ = new FilterDialog(state_.settings, this);
        // Applied filters show in the status line at once, in its running form.
        connect(filter_, &FilterDialog::applied, this, [this] { Label4->setText(cycle_->runningStatus()); });
    }
    return filter_;
}

AutomateDialog* ReportWindow::automateDialog()
{
    if (!automate_)
        automate_ = new AutomateDialog(state_.settings, *state_.platform.boxes, *state_.platform.filedialogs, this);
    return automate_;
}

int ReportWindow::intervalMinutes() const { return Label1->text().toInt(); }

void ReportWindow::intervalChanged(int value)
{
    // The next scan keeps its time; the new interval counts from the next scan on.
    Label1->setText(QString::number(std::abs(value)));
    state_.settings.reportinterval = Label1->text();
}

int ReportWindow::selectedRow() const
{
    const QModelIndexList chosen = ListView1->selectionModel()->selectedRows();
    return chosen.isEmpty() ? -1 : chosen.first().row();
}

void ReportWindow::selectRow(int row)
{
    if (row < 0 || row >= rows_.count()) {
        ListView1->selectionModel()->clearSelection();
        return;
    }
    const QModelIndex at = ListView1->model()->index(row, 0);
    ListView1->selectionModel()->setCurrentIndex(
        at, QItemSelectionModel::ClearAndSelect | QItemSelectionModel::Rows);
}

void ReportWindow::activate(bool byUser)
{
    if (byUser)
        cycle_->clearNoServices();
    const bool ascending = state_.settings.reportascending;
    (ascending ? Option1 : Option2)->setChecked(true);
    const Qt::SortOrder order = ascending ? Qt::AscendingOrder : Qt::DescendingOrder;
    const int column = std::clamp(state_.settings.reportsortcolumn.trimmed().toInt(), 0, kColumnCount - 1);
    rows_.sortBy(column, order);
    ListView1->header()->setSortIndicator(column, order);
    rememberPlacement();
}

void ReportWindow::rememberPlacement()
{
    core::SettingsRecord& s = state_.settings;
    s.reportleft = QString::number(x() * kTwipsPerPixel);
    s.reporttop = QString::number(y() * kTwipsPerPixel);
    s.reportwidth = QString::number(width() * kTwipsPerPixel);
    s.reportheight = QString::number(height() * kTwipsPerPixel);
}

void ReportWindow::columnClick(int column)
{
    const Qt::SortOrder order = Option2->isChecked() ? Qt::DescendingOrder : Qt::AscendingOrder;
    const bool running = Timer1->isEnabled();
    if (running)
        Timer1->setEnabled(false);
    rows_.sortBy(column, order);
    ListView1->header()->setSortIndicator(column, order);
    // The chosen column is kept, so the next activation and the next run sort by it.
    state_.settings.reportsortcolumn = QString::number(column);
    if (running)
        Timer1->setEnabled(true);
}

void ReportWindow::listRightButton(const QPoint& globalPos)
{
    const int row = selectedRow();
    if (row >= 0) {
        // The pen of the computer column decides: green cannot be acknowledged, red can, and
        // an acknowledged (cyan) row leaves the item as it was.
        const int pen = rows_.at(row).colourOf(ComputerColumn);
        if (pen == colour::green)
            mnuaknowledge->setEnabled(false);
        else if (pen == colour::red)
            mnuaknowledge->setEnabled(true);
    }
    if (rows_.isEmpty()) {
        mnuaknowledge->setEnabled(false);
        mnushowproperties->setEnabled(false);
        mnugotoservice->setEnabled(false);
        mnuavailability->setEnabled(false);
        mnucontext->popup(globalPos);
    } else if (row < 0) {
        state_.platform.boxes->show(QStringLiteral("Please select an Item "), MsgIcon::Information);
    } else {
        mnushowproperties->setEnabled(true);
        mnugotoservice->setEnabled(true);
        mnuavailability->setEnabled(true);
        mnucontext->popup(globalPos);
    }
}

void ReportWindow::acknowledge()
{
    if (rows_.isEmpty())
        return;
    const int row = selectedRow();
    rows_.acknowledge(row);
    if (row >= 0 && row < rows_.count())
        emit acknowledged(rows_.at(row).texts[ComputerColumn], rows_.at(row).texts[ServiceColumn]);
}

void ReportWindow::gotoservice()
{
    const int row = selectedRow();
    if (row < 0)
        return;
    emit gotoServiceRequested(rows_.at(row).texts[ComputerColumn], rows_.at(row).texts[ServiceColumn]);
}

void ReportWindow::showproperties()
{
    const int row = selectedRow();
    if (row < 0)
        return;
    emit propertiesRequested(rows_.at(row).texts[ComputerColumn]);
}

void ReportWindow::exportreport(std::function<void(ExportResult)> done)
{
    if (!done)
        done = [](ExportResult) {};
    const bool running = Timer1->isEnabled();
    if (running)
        Timer1->setEnabled(false);
    const QString chosen = state_.platform.filedialogs->saveFile(this, QStringLiteral("Save File As"),
                                                                 QStringLiteral("Textfile (*.txt)"),
                                                                 QStringLiteral("*.txt"), QStringLiteral("txt"));
    const QString path = chosen.isEmpty() ? QString() : txtPath(chosen);
    // The dialog asked about the name as chosen; when another extension makes it another file,
    // the question is asked again about the file that is written.
    platform::TextFiles& files = *state_.platform.files;
    if (chosen.isEmpty() ||
        (files.exists(path) && files.resolve(path) != files.resolve(chosen) &&
         state_.platform.boxes->show(path + QStringLiteral(" already exists.\nDo you want to replace it?"),
                                     MsgIcon::Question, MsgButtons::YesNo) != MsgAnswer::Yes)) {
        if (running)
            Timer1->setEnabled(true);
        done(ExportResult::Cancelled);
        return;
    }
    QPointer<ReportWindow> self(this);
    writeExport(state_.platform, this, path, rows_.exportLines(), WriteMode::Replace,
                [self, running, path, done](WriteOutcome outcome) {
                    if (running)
                        self->Timer1->setEnabled(true);
                    if (!outcome.ok) {
                        QString text = QStringLiteral("The report could not be written to ") + path +
                                       QStringLiteral(" . The list is kept as it is.");
                        if (!outcome.error.isEmpty())
                            text += QStringLiteral("\n\n") + outcome.error;
                        self->state_.platform.boxes->show(text, MsgIcon::Critical);
                        done(ExportResult::Failed);
                        return;
                    }
                    done(ExportResult::Saved);
                });
}

void ReportWindow::clearContents()
{
    if (rows_.isEmpty())
        return;
    const MsgAnswer answer = state_.platform.boxes->show(kSaveBeforeClearing, MsgIcon::Question, MsgButtons::YesNoCancel);
    if (answer == MsgAnswer::No) {
        rows_.clear();
    } else if (answer == MsgAnswer::Yes) {
        // Only the rows that were written go; rows a scan added meanwhile stay.
        const quint64 upTo = rows_.nextSerial();
        exportreport([this, upTo](ExportResult result) {
            if (result == ExportResult::Saved)
                rows_.removeBefore(upTo);
        });
    }
}

void ReportWindow::askBeforeClosing(std::function<void(bool)> then)
{
    if (rows_.isEmpty()) {
        then(true);
        return;
    }
    const MsgAnswer answer = state_.platform.boxes->show(kSaveBeforeClosing, MsgIcon::Question, MsgButtons::YesNoCancel);
    if (answer == MsgAnswer::No)
        then(true);
    else if (answer == MsgAnswer::Yes)
        exportreport([then](ExportResult result) { then(result == ExportResult::Saved); });
    else
        then(false);
}

void ReportWindow::exitReport()
{
    cycle_->clearScanFlag();
    askBeforeClosing([this](bool go) {
        if (go)
            hide(); // the rows and the timer stay
    });
}

void ReportWindow::pauseTimer(bool paused) { Timer1->setEnabled(!paused); }

bool ReportWindow::event(QEvent* e)
{
    if (e->type() == QEvent::WindowActivate) {
        // Closing a message box gives the activation back to the window it came from: that is
        // no activation by the user, and a pause for want of monitored services holds.
        activate(!focusInBox_);
        focusInBox_ = false;
    }
    return QMainWindow::event(e);
}

void ReportWindow::closeEvent(QCloseEvent* e)
{
    if (closeConfirmed_) {
        QMainWindow::closeEvent(e);
        return;
    }
    cycle_->clearScanFlag();
    core::SettingsRecord& s = state_.settings;
    const QSize screen = this->screen() ? this->screen()->size() : QSize(INT_MAX, INT_MAX);
    if (x() > 0)
        s.reportleft = QString::number(x() * kTwipsPerPixel);
    if (y() > 0)
        s.reporttop = QString::number(y() * kTwipsPerPixel);
    if (width() < screen.width())
        s.reportwidth = QString::number(width() * kTwipsPerPixel);
    if (height() < screen.height())
        s.reportheight = QString::number(height() * kTwipsPerPixel);
    // An answer given at once decides this close; a save still being written closes the
    // window once it is done.
    auto answered = std::make_shared<std::optional<bool>>();
    auto inside = std::make_shared<bool>(true);
    QPointer<ReportWindow> self(this);
    askBeforeClosing([self, answered, inside](bool go) {
        if (*inside) {
            *answered = go;
        } else if (self && go) {
            self->closeConfirmed_ = true;
            self->close();
        }
    });
    *inside = false;
    if (answered->value_or(false))
        QMainWindow::closeEvent(e);
    else
        e->ignore();
}

bool ReportWindow::eventFilter(QObject* watched, QEvent* e)
{
    if (watched == ListView1->viewport() && e->type() == QEvent::MouseButtonPress) {
        auto* me = static_cast<QMouseEvent*>(e);
        if (me->button() == Qt::RightButton) {
            const QModelIndex at = ListView1->indexAt(me->position().toPoint());
            if (at.isValid())
                selectRow(at.row());
            listRightButton(me->globalPosition().toPoint());
            return true;
        }
    }
    return QMainWindow::eventFilter(watched, e);
}

} // namespace velmora::report
