#include "history/availabilitywindow.h"

#include "history/availabilitymodels.h"
#include "platform/formcontrols.h"

#include <QComboBox>
#include <QHBoxLayout>
#include <QHeaderView>
#include <QLabel>
#include <QLineEdit>
#include <QLocale>
#include <QPushButton>
#include <QScrollBar>
#include <QSortFilterProxyModel>
#include <QSplitter>
#include <QTableView>
#include <QTimer>
#include <QVBoxLayout>
#include <QWheelEvent>

namespace velmora::history {

using platform::named;

namespace {

enum Period { LastDay, LastWeek, LastMonth, WholeLog };
constexpr qint64 kShortestSpan = 600;
constexpr int kPollMs = 10000;

// Finds services by a part of their server's or their own name.
class ServiceFilter : public QSortFilterProxyModel {
public:
    using QSortFilterProxyModel::QSortFilterProxyModel;
    void setText(const QString& text)
    {
        text_ = text.trimmed();
        invalidateFilter();
    }

protected:
    bool filterAcceptsRow(int row, const QModelIndex& parent) const override
    {
        if (text_.isEmpty())
            return true;
        for (int column : {ServicesModel::ServerColumn, ServicesModel::ServiceColumn})
            if (sourceModel()->index(row, column, parent).data().toString().contains(text_, Qt::CaseInsensitive))
                return true;
        return false;
    }

private:
    QString text_;
};

QTableView* table(const char* name, QAbstractItemModel* model)
{
    auto* view = named(new QTableView, name);
    view->setModel(model);
    view->setSortingEnabled(true);
    view->setSelectionBehavior(QAbstractItemView::SelectRows);
    view->setSelectionMode(QAbstractItemView::SingleSelection);
    view->setEditTriggers(QAbstractItemView::NoEditTriggers);
    view->setAlternatingRowColors(true);
    view->setShowGrid(false);
    view->setWordWrap(false);
    view->verticalHeader()->hide();
    view->verticalHeader()->setDefaultSectionSize(view->fontMetrics().height() + 8);
    view->horizontalHeader()->setHighlightSections(false);
    return view;
}

} // namespace

AvailabilityWindow::AvailabilityWindow(const platform::Platform& platform, LogHistory& history, QWidget* parent)
    : QWidget(parent, Qt::Window), p_(platform), history_(history)
{
    setObjectName(QStringLiteral("Form12"));
    setWindowTitle(QStringLiteral("Velmora Availability"));
    resize(1180, 760);

    Label3 = named(new QLabel(QStringLiteral("&Period:")), "Label3");
    Combo1 = named(new QComboBox, "Combo1");
    Combo1->addItems({QStringLiteral("Last day"), QStringLiteral("Last week"), QStringLiteral("Last month"),
                      QStringLiteral("Whole log")});
    Label3->setBuddy(Combo1);
    Command2 = named(new QPushButton(QStringLiteral("Zoom &In")), "Command2");
    Command3 = named(new QPushButton(QStringLiteral("Zoom &Out")), "Command3");
    Label4 = named(new QLabel(QStringLiteral("&Find:")), "Label4");
    Text1 = named(new QLineEdit, "Text1");
    Text1->setPlaceholderText(QStringLiteral("server or service"));
    Text1->setClearButtonEnabled(true);
    Label4->setBuddy(Text1);
    auto* top = new QHBoxLayout;
    top->addWidget(Label3);
    top->addWidget(Combo1);
    top->addWidget(Command2);
    top->addWidget(Command3);
    top->addSpacing(16);
    top->addWidget(Label4);
    top->addWidget(Text1, 1);

    Picture1 = named(new Legend, "Picture1");
    Label1 = named(new QLabel, "Label1");
    Label1->setTextInteractionFlags(Qt::TextSelectableByMouse);
    auto* legend = new QHBoxLayout;
    legend->addWidget(Picture1);
    legend->addStretch(1);
    legend->addWidget(Label1);

    services_ = new ServicesModel(history_.history(), this);
    auto* filter = new ServiceFilter(this);
    servicesView_ = filter;
    servicesView_->setSourceModel(services_);
    servicesView_->setSortRole(kSortRole);
    ListView1 = table("ListView1", servicesView_);
    auto* axis = new TimeAxisHeader(span_, ServicesModel::TimelineColumn, ListView1);
    ListView1->setHorizontalHeader(axis);
    axis->setHighlightSections(false);
    axis->setSectionsClickable(true);
    axis->setSortIndicatorShown(true);
    axis->setStretchLastSection(true);
    ListView1->setItemDelegateForColumn(ServicesModel::TimelineColumn, new TimelineDelegate(history_.history(), span_, ListView1));
    ListView1->setColumnWidth(ServicesModel::ServerColumn, 120);
    ListView1->setColumnWidth(ServicesModel::ServiceColumn, 190);
    for (int c : {ServicesModel::DayColumn, ServicesModel::WeekColumn, ServicesModel::MonthColumn})
        ListView1->setColumnWidth(c, 72);
    ListView1->viewport()->installEventFilter(this);
    HScroll1 = named(new QScrollBar(Qt::Horizontal), "HScroll1");

    Label2 = named(new QLabel, "Label2");
    Command4 = named(new QPushButton(QStringLiteral("&All Services")), "Command4");
    Command1 = named(new QPushButton(QStringLiteral("Export &CSV...")), "Command1");
    outages_ = new OutagesModel(history_.history(), this);
    ListView2 = table("ListView2", outages_);
    const int widths[] = {120, 190, 135, 135, 80, 85, 170, 330};
    for (int c = 0; c < int(std::size(widths)); ++c)
        ListView2->setColumnWidth(c, widths[c]);
    ListView2->horizontalHeader()->setStretchLastSection(true);
    ListView2->sortByColumn(OutagesModel::StartColumn, Qt::DescendingOrder);

    auto* upper = new QWidget;
    auto* upperLayout = new QVBoxLayout(upper);
    upperLayout->setContentsMargins(0, 0, 0, 0);
    upperLayout->setSpacing(0);
    upperLayout->addWidget(ListView1);
    upperLayout->addWidget(HScroll1);
    auto* lower = new QWidget;
    auto* lowerLayout = new QVBoxLayout(lower);
    lowerLayout->setContentsMargins(0, 6, 0, 0);
    auto* caption = new QHBoxLayout;
    caption->addWidget(Label2, 1);
    caption->addWidget(Command4);
    caption->addWidget(Command1);
    lowerLayout->addLayout(caption);
    lowerLayout->addWidget(ListView2);
    auto* split = new QSplitter(Qt::Vertical);
    split->addWidget(upper);
    split->addWidget(lower);
    split->setStretchFactor(0, 2);
    split->setStretchFactor(1, 1);
    split->setChildrenCollapsible(false);

    auto* layout = new QVBoxLayout(this);
    layout->addLayout(top);
    layout->addLayout(legend);
    layout->addWidget(split, 1);

    Timer1 = p_.clock->createTimer(this, QStringLiteral("Timer1"), kPollMs);

    connect(Combo1, &QComboBox::currentIndexChanged, this, &AvailabilityWindow::periodChosen);
    connect(Command2, &QPushButton::clicked, this, [this] { zoom(0.5, span_.from + span_.length() / 2); });
    connect(Command3, &QPushButton::clicked, this, [this] { zoom(2, span_.from + span_.length() / 2); });
    connect(Text1, &QLineEdit::textChanged, filter, &ServiceFilter::setText);
    connect(Command4, &QPushButton::clicked, ListView1, &QTableView::clearSelection);
    connect(Command1, &QPushButton::clicked, this, &AvailabilityWindow::exportOutages);
    connect(ListView1->selectionModel(), &QItemSelectionModel::selectionChanged, this, &AvailabilityWindow::updateOutages);
    connect(HScroll1, &QScrollBar::valueChanged, this, [this](int minute) {
        if (!movingScrollBar_)
            showSpan(qint64(minute) * 60, qint64(minute) * 60 + span_.length());
    });
    connect(ListView2, &QTableView::doubleClicked, this, [this](const QModelIndex& index) {
        // Zooms the strips to the outage, with as much time around it as it lasted.
        const OutageRef ref = outages_->outages().value(index.row());
        const ServiceHistory& s = history_.history().services[size_t(ref.service)];
        const Outage& o = s.outages[ref.outage];
        const qint64 end = outageSpan(s, o, span_.now).end;
        const qint64 margin = std::max<qint64>((end - o.start) / 2, kShortestSpan / 2);
        showSpan(o.start - margin, end + margin);
    });
    connect(Timer1, &platform::Timer::timeout, &history_, &LogHistory::refresh);
    connect(&history_, &LogHistory::updated, this, &AvailabilityWindow::historyUpdated);

    Combo1->setCurrentIndex(LastWeek);
    updateStatus();
}

void AvailabilityWindow::open()
{
    show();
    raise();
    activateWindow();
}

void AvailabilityWindow::openOn(const QString& server, const QString& service)
{
    wantedServer_ = server;
    wantedService_ = service;
    wanted_ = true;
    Text1->clear();
    open();
    if (!history_.empty())
        selectWanted();
}

void AvailabilityWindow::logChanged()
{
    if (isVisible())
        history_.refresh();
}

void AvailabilityWindow::showEvent(QShowEvent* e)
{
    QWidget::showEvent(e);
    Timer1->setEnabled(true);
    // The read starts once the window has drawn itself, so that it does not compete with that.
    QTimer::singleShot(0, &history_, &LogHistory::refresh);
}

void AvailabilityWindow::hideEvent(QHideEvent* e)
{
    Timer1->setEnabled(false);
    QWidget::hideEvent(e);
}

bool AvailabilityWindow::eventFilter(QObject* watched, QEvent* e)
{
    // Ctrl and the wheel over the strips zoom around the time under the mouse.
    if (watched == ListView1->viewport() && e->type() == QEvent::Wheel) {
        auto* wheel = static_cast<QWheelEvent*>(e);
        const int left = ListView1->columnViewportPosition(ServicesModel::TimelineColumn);
        const int width = ListView1->columnWidth(ServicesModel::TimelineColumn);
        const int x = int(wheel->position().x()) - left;
        if (wheel->modifiers() & Qt::ControlModifier && x >= 0 && x < width && wheel->angleDelta().y() != 0) {
            zoom(wheel->angleDelta().y() > 0 ? 0.8 : 1.25, span_.from + qint64(x) * span_.length() / std::max(width, 1));
            return true;
        }
    }
    return QWidget::eventFilter(watched, e);
}

int AvailabilityWindow::selectedService() const
{
    const QModelIndexList rows = ListView1->selectionModel()->selectedRows();
    return rows.isEmpty() ? -1 : rows.first().data(kServiceRole).toInt();
}

qint64 AvailabilityWindow::logStart() const
{
    qint64 start = span_.now;
    for (const ServiceHistory& s : history_.history().services)
        if (!s.runs.isEmpty())
            start = std::min(start, s.first);
    return start;
}

void AvailabilityWindow::showSpan(qint64 from, qint64 to)
{
    if (to - from < kShortestSpan) {
        const qint64 middle = (from + to) / 2;
        from = middle - kShortestSpan / 2;
        to = from + kShortestSpan;
    }
    span_.from = from;
    span_.to = to;
    updateScrollBar();
    ListView1->viewport()->update();
    ListView1->horizontalHeader()->viewport()->update();
    updateOutages();
}

void AvailabilityWindow::zoom(double factor, qint64 around)
{
    const qint64 length = std::max<qint64>(qint64(double(span_.length()) * factor), kShortestSpan);
    const double at = double(around - span_.from) / double(span_.length());
    const qint64 from = around - qint64(at * double(length));
    showSpan(from, from + length);
}

void AvailabilityWindow::periodChosen(int period)
{
    static const qint64 lengths[] = {kDay, 7 * kDay, 30 * kDay};
    span_.now = history_.now();
    const qint64 from = period == WholeLog ? logStart() : span_.now - lengths[period];
    showSpan(from, span_.now);
    const int column = period == LastDay ? ServicesModel::DayColumn
                       : period == LastWeek ? ServicesModel::WeekColumn
                                            : ServicesModel::MonthColumn;
    ListView1->sortByColumn(column, Qt::AscendingOrder);
}

void AvailabilityWindow::historyUpdated()
{
    // A view that ended at the present keeps ending there as time goes on.
    const qint64 now = history_.history().computedAt;
    if (span_.to >= span_.now) {
        const qint64 shift = now - span_.to;
        span_.from += shift;
        span_.to += shift;
    }
    span_.now = now;
    const bool first = services_->rowCount() == 0;
    services_->historyChanged();
    if (first)
        fitNameColumns();
    updateScrollBar();
    updateOutages();
    updateStatus();
    ListView1->viewport()->update();
    ListView1->horizontalHeader()->viewport()->update();
    if (wanted_)
        selectWanted();
}

void AvailabilityWindow::fitNameColumns()
{
    // As wide as the longest server name (within reason), in both lists.
    const QFontMetrics fm = ListView1->fontMetrics();
    int width = fm.horizontalAdvance(QStringLiteral("Server")) + 24;
    for (const ServiceHistory& s : history_.history().services)
        width = std::max(width, fm.horizontalAdvance(s.server) + 16);
    width = std::min(width, 280);
    ListView1->setColumnWidth(ServicesModel::ServerColumn, width);
    ListView2->setColumnWidth(OutagesModel::ServerColumn, width);
}

void AvailabilityWindow::selectWanted()
{
    wanted_ = false;
    const std::vector<ServiceHistory>& all = history_.history().services;
    for (size_t i = 0; i < all.size(); ++i) {
        if (all[i].server.compare(wantedServer_, Qt::CaseInsensitive) == 0 &&
            all[i].service.compare(wantedService_, Qt::CaseInsensitive) == 0) {
            const QModelIndex at = servicesView_->mapFromSource(services_->index(int(i), ServicesModel::ServerColumn));
            ListView1->selectionModel()->setCurrentIndex(at, QItemSelectionModel::ClearAndSelect | QItemSelectionModel::Rows);
            ListView1->scrollTo(at, QAbstractItemView::PositionAtCenter);
            return;
        }
    }
    ListView1->clearSelection();
    Label2->setText(QStringLiteral("The job log has no checks of %1 on %2.").arg(wantedService_, wantedServer_));
}

void AvailabilityWindow::updateOutages()
{
    const History& h = history_.history();
    const int service = selectedService();
    outages_->setOutages(outagesIn(h, service, span_.from, span_.to, span_.now), span_.now);
    const qsizetype count = outages_->outages().size();
    const QString whose = service < 0 ? QStringLiteral("all services")
                                      : h.services[size_t(service)].server + QStringLiteral(" / ") +
                                            h.services[size_t(service)].service;
    Label2->setText(QStringLiteral("<b>%1 outage%2</b> of %3 in the shown time")
                        .arg(count)
                        .arg(count == 1 ? QString() : QStringLiteral("s"))
                        .arg(whose.toHtmlEscaped()));
    Command4->setEnabled(service >= 0);
    Command1->setEnabled(count > 0);
}

void AvailabilityWindow::updateScrollBar()
{
    movingScrollBar_ = true;
    const qint64 first = std::min(logStart(), span_.from), last = std::max(span_.now, span_.to);
    const int spanMinutes = int(span_.length() / 60);
    HScroll1->setRange(int(first / 60), int(std::max<qint64>(first / 60, last / 60 - spanMinutes)));
    HScroll1->setPageStep(spanMinutes);
    HScroll1->setSingleStep(std::max(1, spanMinutes / 20));
    HScroll1->setValue(int(span_.from / 60));
    movingScrollBar_ = false;
}

void AvailabilityWindow::updateStatus()
{
    const History& h = history_.history();
    const QLocale locale;
    QString text;
    if (history_.empty())
        text = QStringLiteral("Reading the job log...");
    else if (!h.logExists)
        text = QStringLiteral("There is no job log yet.");
    else
        text = QStringLiteral("%1 lines, %2 services").arg(locale.toString(h.lines), locale.toString(qint64(h.services.size())));
    if (h.skipped > 0) {
        QStringList numbers;
        for (qint64 n : h.skippedLines)
            numbers << QString::number(n);
        text += QStringLiteral("; %1 skipped, not readable (line %2%3)")
                    .arg(h.skipped == 1 ? QStringLiteral("1 line") : locale.toString(h.skipped) + QStringLiteral(" lines"),
                         numbers.join(QStringLiteral(", ")),
                         h.skipped > h.skippedLines.size() ? QStringLiteral(", ...") : QString());
    }
    Label1->setText(text);
}

void AvailabilityWindow::exportOutages()
{
    const QString path = p_.filedialogs->saveFile(this, QStringLiteral("Export Outages"),
                                                  QStringLiteral("CSV Files (*.csv)"), QStringLiteral("*.csv"),
                                                  QStringLiteral("csv"));
    if (path.isEmpty())
        return;
    if (!p_.files->writeLines(path, outagesCsv(history_.history(), outages_->outages(), span_.now)))
        p_.boxes->show(QStringLiteral("The outages could not be written to %1: %2").arg(path, p_.files->lastError()),
                       platform::MsgIcon::Critical);
}

} // namespace velmora::history
