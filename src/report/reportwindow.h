#pragma once
// The report window Form9 "Velmora Instant Report": the report rows, the interval spinner, the
// status line, the sort order, the menus and the context menu, and the report's own one-second
// timer Timer1 that drives its cycle. The window owns the rows and the cycle: hiding it keeps
// both running, closing it by the close box unloads it and everything it found.
//
// Controls are public members named as on the form, so that tests and the program find them.
// Positions are kept in twips in the settings record (reportleft ... reportheight).
#include "core/runstate.h"
#include "report/reportcycle.h"
#include "report/reportrows.h"

#include <QMainWindow>
#include <QPointer>
#include <functional>

class QAction;
class QLabel;
class QMenu;
class QRadioButton;
class QScrollBar;
class QTreeView;

namespace velmora::monitoring { class CheckCycle; }
namespace velmora::platform { class Timer; }

namespace velmora::report {

class FilterDialog;
class AutomateDialog;

// What became of an export.
enum class ExportResult { Saved, Cancelled, Failed };

class ReportWindow : public QMainWindow {
    Q_OBJECT
public:
    // Loading the window runs the first report scan at once.
    ReportWindow(core::RunState& state, monitoring::CheckCycle& checks, QWidget* parent = nullptr);
    ~ReportWindow() override;

    // Column widths of ListView1 in twips, in column order.
    static const int kColumnTwips[kColumnCount];

    ReportRows& rows() { return rows_; }
    ReportCycle& cycle() { return *cycle_; }

    // ---- controls ----
    QTreeView* ListView1 = nullptr;
    QLabel *Label1 = nullptr, *Label2 = nullptr, *Label3 = nullptr, *Label4 = nullptr, *Label5 = nullptr;
    QScrollBar* VScroll1 = nullptr;
    QRadioButton *Option1 = nullptr, *Option2 = nullptr;
    platform::Timer* Timer1 = nullptr;

    // ---- menus ----
    QMenu *mnufile = nullptr, *mnureport = nullptr, *mnucontext = nullptr;
    QAction *mnuexport = nullptr, *mnuclose = nullptr;
    QAction *mnustopreport = nullptr, *mnustartreport = nullptr, *mnufilter = nullptr, *mnuautomate = nullptr,
            *mnuclear = nullptr;
    QAction *mnugotoservice = nullptr, *mnuaknowledge = nullptr, *mnushowproperties = nullptr,
            *mnuavailability = nullptr;
    // "Show Journal...": shown while the alert options put the journal in the mail.
    QAction* mnujournal = nullptr;

    // ---- operations ----
    // "Export in Textfile...": asks for a file and writes the rows; done learns what became of it.
    void exportreport(std::function<void(ExportResult)> done = {});
    // The steps run each time the window comes to the front; byUser false when it comes back
    // from a message box of its own, which leaves the no-services pause as it is.
    void activate(bool byUser = true);
    // A click on a column header.
    void columnClick(int column);
    // The right mouse button over the list.
    void listRightButton(const QPoint& globalPos);
    void acknowledge();
    void gotoservice();
    void showproperties();
    void clearContents();
    void exitReport();
    // Pauses the report's timer while "Check Services Now" runs (true) and resumes it (false).
    void pauseTimer(bool paused);

    // The row selected in the list, -1 for none.
    int selectedRow() const;
    // Selects a row of the list (-1: none).
    void selectRow(int row);

    // The dialogs, created on first use.
    FilterDialog* filterDialog();
    AutomateDialog* automateDialog();

signals:
    // "Goto Service..." and a double-click: the main window shows the service.
    void gotoServiceRequested(const QString& server, const QString& service);
    // "Properties...": the server properties of a row's server.
    void propertiesRequested(const QString& server);
    // "Availability...": the availability of a row's service.
    void availabilityRequested(const QString& server, const QString& service);
    // "Show Journal..." of a row's service.
    void journalRequested(const QString& server, const QString& service);
    // "Acknowledge" of a row: its failure is acknowledged.
    void acknowledged(const QString& server, const QString& service);

protected:
    bool event(QEvent* e) override;
    void closeEvent(QCloseEvent* e) override;
    bool eventFilter(QObject* watched, QEvent* e) override;

private:
    void buildControls();
    void buildMenus();
    void intervalChanged(int value);
    int intervalMinutes() const;
    // Asks whether to save before closing and calls then(close) with the answer: true to go.
    void askBeforeClosing(std::function<void(bool)> then);
    void rememberPlacement();

    core::RunState& state_;
    ReportRows rows_;
    ReportCycle* cycle_ = nullptr;
    FilterDialog* filter_ = nullptr;
    QPointer<AutomateDialog> automate_;
    bool closeConfirmed_ = false;
    bool focusInBox_ = false; // the focus last went to a message box
};

} // namespace velmora::report
