#include "core/datafolder.h"
#include "core/timestamps.h"
#include "joblog/joblog.h"
#include "report/automatedialog.h"
#include "report/filterdialog.h"
#include "report/reportwindow.h"
#include "shell/propertieswindow.h"
#include "support/windowfixture.h"

#include <QAction>
#include <QCheckBox>
#include <QLabel>
#include <QLineEdit>
#include <QMenu>
#include <QPushButton>
#include <QRadioButton>
#include <QScrollBar>
#include <QTest>
#include <QTreeView>

#include <optional>

using namespace velmora;
using platform::MsgAnswer;
using platform::MsgButtons;
using platform::sim::SimTextFiles;
using report::ReportWindow;
using test::WindowFixture;
namespace svcstate = platform::svcstate;

namespace {

const QString kNoServices =
    "There are no Services to be monitored,  please configure Services to be monitored !    ";

// Three servers: WEB1 with a running, a stopped and a missing service (its check fails), DB2
// that does not answer, FILE4 with a paused service.
struct Fleet : WindowFixture {
    Fleet()
    {
        writeFile("Computerlist", {"WEB1\tmonitored", "DB2\tmonitored", "FILE4\tmonitored"});
        writeFile("Computers", {"WEB1", "DB2", "FILE4"});
        writeFile("WEB1", {"Web;nginx.service;Alert;;;;;", "Jobs;cron.service;Restart Service;Alert;;;;",
                           "Gone;gone.service;;;;;;", "[Properties:]", "[EOF]"});
        writeFile("DB2", {"Database;mariadb.service;Alert;;;;;"});
        writeFile("FILE4", {"Samba;smbd.service;;;;;;"});
        writeFile("Interval", {"30"});
        sim.icmp.addComputer("WEB1", "10.4.0.1", 0);
        sim.icmp.addComputer("DB2", "10.4.0.2", 11010);
        sim.icmp.addComputer("FILE4", "10.4.0.4", 0);
        auto& s = sim.services;
        s.addService("WEB1", {.name = "nginx.service", .state = svcstate::stopped});
        s.addService("WEB1", {.name = "cron.service", .state = svcstate::running});
        s.addService("FILE4", {.name = "smbd.service", .state = svcstate::paused});
        s.addService("DB2", {.name = "mariadb.service", .state = svcstate::stopped});
    }
    // Starts the program with the given settings changes and opens the report.
    ReportWindow& open(const std::function<void(core::SettingsRecord&)>& settings = {})
    {
        start();
        if (settings)
            settings(program->state.settings);
        program->showReport();
        return *program->reportWindow();
    }
    ReportWindow& report() { return *program->reportWindow(); }
    // "computer|service|state|colour" for each row, colour as g, r or c (computer column).
    QStringList rows()
    {
        QStringList out;
        const report::ReportRows& r = report().rows();
        for (int i = 0; i < r.count(); ++i) {
            const report::ReportRow& row = r.at(i);
            const int pen = row.colourOf(report::ComputerColumn);
            const QString colour = pen == report::colour::green ? "g" : pen == report::colour::red ? "r" : "c";
            out << QStringList{row.texts[2], row.texts[3], row.texts[4], colour}.join('|');
        }
        return out;
    }
    // Moves the clock on by whole minutes, one timer second at a time being too slow to care.
    void minutes(int n) { sim.clock.advance(qint64(n) * 60000); }
    QStringList boxTexts() const { return sim.boxes.texts(); }
};

const QString kRunningRow = "WEB1|cron.service|Running|g";
const QString kStoppedRow = "WEB1|nginx.service|Stopped|r";
const QString kFailedRow = "WEB1|gone.service|Open Service failed. Error  1060|r";
const QString kUnreachableRow = "DB2|mariadb.service|Error Server not Available|r";
const QString kPausedRow = "FILE4|smbd.service|Paused|r";

QString exported(const WindowFixture& f, const QString& name) { return QString::fromUtf8(f.readBytes(name)); }

} // namespace

class ReportWindowTest : public QObject {
    Q_OBJECT
private slots:
    // Each filter lets its own rows through (all three are on by default, "not running" alone is
    // tried with the status line).
    void aScanAddsTheRowsItsFiltersLetThrough_data()
    {
        QTest::addColumn<bool>("running");
        QTest::addColumn<bool>("errors");
        QTest::addColumn<QStringList>("rows");
        QTest::newRow("running") << true << false << QStringList{kRunningRow};
        QTest::newRow("errors") << false << true << QStringList{kFailedRow, kUnreachableRow};
        QTest::newRow("none") << false << false << QStringList{};
    }
    void aScanAddsTheRowsItsFiltersLetThrough()
    {
        QFETCH(bool, running);
        QFETCH(bool, errors);
        QFETCH(QStringList, rows);
        Fleet f;
        f.open([&](core::SettingsRecord& s) {
            s.reportrunning = running;
            s.reportnotrunning = false;
            s.reporterrors = errors;
        });
        QCOMPARE(f.rows(), rows);
    }

    void statusLineAndScansFollowStopStartAndFilters()
    {
        Fleet f;
        ReportWindow& r = f.open();
        const QDateTime next = f.sim.clock.now().addSecs(5 * 60);
        const QString at = core::dateText(next) + " " + joblog::timeText(next);
        QCOMPARE(r.Label4->text(), "Next at:  " + at + " Filter: running not running errors");
        r.mnustopreport->trigger();
        QCOMPARE(r.Label4->text(), "Next at: Report Stopped  Filter: running not running errors");
        // Cancel drops what was changed in the dialog, but the boxes stay as they were left.
        r.mnufilter->trigger();
        report::FilterDialog* d = r.filterDialog();
        d->Check2->setChecked(false);
        d->Command2->click();
        QVERIFY(!d->isVisible());
        QVERIFY(f.program->state.settings.reportnotrunning);
        r.mnufilter->trigger();
        QVERIFY(!d->Check2->isChecked());
        // Applied filters write the running form even while the report is stopped.
        d->Check2->setChecked(true);
        d->Check1->setChecked(false);
        d->Check3->setChecked(false);
        d->Command3->click();
        QCOMPARE(r.Label4->text(), "Next at:  " + at + " Filter:  not running ");
        r.mnustartreport->trigger();
        // The rows already listed stay; the next scan follows the new filters.
        const int before = r.rows().count();
        f.minutes(5);
        QCOMPARE(f.rows().mid(before), (QStringList{kStoppedRow, kPausedRow}));
    }

    void aStoppedReportOnlyMovesItsNextScanOn()
    {
        Fleet f;
        ReportWindow& r = f.open([](core::SettingsRecord& s) {
            s.autoexport = true;
            s.autoexportcount = "1";
            s.autoexportfile = "";
        });
        f.program->state.settings.autoexportfile = f.path("auto.txt");
        const int firstScan = r.rows().count();
        r.mnustopreport->trigger();
        f.minutes(5);
        QCOMPARE(r.rows().count(), firstScan);
        QCOMPARE(r.cycle().nextScan(), f.sim.clock.now().addSecs(5 * 60));
        QVERIFY(!f.fileExists("auto.txt")); // a stopped report makes no automatic export
        QVERIFY(r.Timer1->isEnabled());
        r.mnustartreport->trigger();
        f.minutes(5);
        QVERIFY(f.fileExists("auto.txt"));
        QCOMPARE(r.rows().count(), 0);
    }

    void withoutMonitoredServersTheReportSaysSoAndWaitsForActivation()
    {
        Fleet f;
        f.writeFile("Computers", {"", "WEB1"}); // an empty first line counts as none
        f.start();
        // The first scan's answers arrive after the list has been emptied: they add no rows.
        f.sim.worker.hold = true;
        f.program->showReport();
        ReportWindow& r = f.report();
        QCOMPARE(f.boxTexts(), QStringList{kNoServices});
        f.sim.worker.release();
        QCoreApplication::processEvents();
        QCOMPARE(r.rows().count(), 0);
        // The timed scan finds none either, says so once, and pauses.
        f.minutes(5);
        QCOMPARE(f.boxTexts().size(), 2);
        QVERIFY(r.cycle().noServices());
        f.minutes(20);
        QCOMPARE(f.boxTexts().size(), 2);
        // Activating the window lets the scans run again.
        f.writeFile("Computers", {"WEB1"});
        r.activate();
        f.minutes(5);
        QCOMPARE(f.boxTexts().size(), 2);
        QCOMPARE(f.rows(), (QStringList{kStoppedRow, kRunningRow, kFailedRow}));
    }

    void theContextMenuAcknowledgesByThePenAndNamesTheRowsServer()
    {
        Fleet f;
        ReportWindow& r = f.open();
        const auto enabled = [&] {
            return QList<bool>{r.mnugotoservice->isEnabled(), r.mnuaknowledge->isEnabled(),
                               r.mnushowproperties->isEnabled()};
        };
        // Right-clicks the row (-1: none; a text: the row showing it) and closes the menu again.
        const auto rightClick = [&](const QVariant& row) {
            r.selectRow(row.typeId() == QMetaType::Int ? row.toInt() : f.rows().indexOf(row.toString()));
            r.listRightButton({});
            r.mnucontext->hide();
        };
        // A red row can be acknowledged.
        rightClick(kStoppedRow);
        QCOMPARE(enabled(), (QList<bool>{true, true, true}));
        r.mnuaknowledge->trigger();
        const int acked = r.selectedRow();
        QCOMPARE(r.rows().at(acked).texts[report::AckColumn], "Acknowledged");
        QCOMPARE(r.ListView1->model()->index(acked, 2).data(Qt::ForegroundRole).value<QColor>(), QColor(0, 255, 255));
        // A green row cannot.
        rightClick(kRunningRow);
        QCOMPARE(enabled(), (QList<bool>{true, false, true}));
        // A cyan row leaves the item as it was last set.
        rightClick(acked);
        QVERIFY(!r.mnuaknowledge->isEnabled());
        rightClick(kPausedRow);
        rightClick(acked);
        QVERIFY(r.mnuaknowledge->isEnabled());
        // Properties and "Goto service" (and a double click) name the row's server.
        r.selectRow(f.rows().indexOf(kPausedRow));
        r.mnushowproperties->trigger();
        QVERIFY(f.window->propertiesWindow() && f.window->propertiesWindow()->isVisible());
        QCOMPARE(f.window->propertiesWindow()->Text9->text(), "FILE4");
        // A double-click goes to the service in the main window.
        const int row = f.rows().indexOf(kRunningRow);
        const QRect cell = r.ListView1->visualRect(r.ListView1->model()->index(row, 3));
        QTest::mouseDClick(r.ListView1->viewport(), Qt::LeftButton, {}, cell.center());
        QCOMPARE(f.window->Text1->text(), "WEB1");
        r.selectRow(f.rows().indexOf(kPausedRow));
        r.mnugotoservice->trigger();
        QCOMPARE(f.window->Text1->text(), "FILE4");
        // Without a selection the user is asked to choose; an empty list offers nothing.
        rightClick(-1);
        QCOMPARE(f.boxTexts(), QStringList{"Please select an Item "});
        r.rows().clear();
        rightClick(-1);
        QCOMPARE(enabled(), (QList<bool>{false, false, false}));
    }

    void aColumnClickSortsByTextInTheChosenOrder()
    {
        Fleet f;
        ReportWindow& r = f.open();
        r.Option2->click();
        QVERIFY(!f.program->state.settings.reportascending);
        r.columnClick(report::ComputerColumn);
        QVERIFY(r.Timer1->isEnabled());
        QCOMPARE(f.program->state.settings.reportsortcolumn, "2");
        QStringList computers;
        for (const QString& row : f.rows())
            computers << row.section('|', 0, 0);
        QCOMPARE(computers, (QStringList{"WEB1", "WEB1", "WEB1", "FILE4", "DB2"}));
        // Activation sorts by the stored column in the stored order.
        r.Option1->click();
        r.activate();
        QCOMPARE(f.rows().first().section('|', 0, 0), "DB2");
        QVERIFY(r.Option1->isChecked());
    }

    void exportWritesTheRowsAsTabSeparatedLinesEndingInTxt()
    {
        const QString typed = "report.log", written = "report.txt";
        Fleet f;
        ReportWindow& r = f.open([](core::SettingsRecord& s) { s.reportrunning = s.reporterrors = false; });
        r.rows().acknowledge(0);
        f.sim.filedialogs.scriptSave(f.path(typed));
        r.mnuexport->trigger();
        // The lines themselves are pinned with the rows; here they reach the file, CR LF ended.
        QCOMPARE(exported(f, written), r.rows().exportLines().join("\r\n") + "\r\n");
        QVERIFY(exported(f, written).contains("\tnginx.service\tStopped\tAlert            \tAcknowledged\r\n"));
        QVERIFY(!f.fileExists(typed));
        QCOMPARE(r.rows().count(), 2); // the list stays
        QVERIFY(f.boxTexts().isEmpty());
    }

    // The file dialog asks about the name typed; when the extension changes, the file that is
    // written is asked about too, and No leaves it as it was (an export that was cancelled). A
    // write that fails says so and keeps the list, also when clearing saved first.
    void exportEndsSavedCancelledOrFailed_data()
    {
        QTest::addColumn<MsgAnswer>("answer");
        QTest::addColumn<bool>("fails");
        QTest::addColumn<report::ExportResult>("result");
        QTest::newRow("replace: Yes") << MsgAnswer::Yes << false << report::ExportResult::Saved;
        QTest::newRow("replace: No") << MsgAnswer::No << false << report::ExportResult::Cancelled;
        QTest::newRow("write fails") << MsgAnswer::Yes << true << report::ExportResult::Failed;
    }
    void exportEndsSavedCancelledOrFailed()
    {
        QFETCH(MsgAnswer, answer);
        QFETCH(bool, fails);
        QFETCH(report::ExportResult, result);
        Fleet f;
        ReportWindow& r = f.open();
        const QStringList rows = f.rows();
        f.writeBytes("myreport.txt", "kept\r\n");
        if (fails)
            f.sim.files.failOn(SimTextFiles::Op::Write, "myreport.txt");
        f.sim.filedialogs.scriptSave(f.path("myreport.log"));
        f.sim.boxes.script(answer);
        std::optional<report::ExportResult> done;
        r.exportreport([&](report::ExportResult d) { done = d; });
        QCOMPARE(f.boxTexts().first(), f.path("myreport.txt") + " already exists.\nDo you want to replace it?");
        QCOMPARE(f.sim.boxes.shown.first().buttons, MsgButtons::YesNo);
        QTRY_VERIFY(done.has_value());
        QCOMPARE(*done, result);
        QCOMPARE(f.boxTexts().size(), fails ? 2 : 1);
        if (fails)
            QVERIFY(f.boxTexts().last().startsWith("The report could not be written to " + f.path("myreport.txt")));
        QCOMPARE(f.readBytes("myreport.txt") == "kept\r\n", result != report::ExportResult::Saved);
        QCOMPARE(f.rows(), rows);
        QVERIFY(r.Timer1->isEnabled());
        if (fails) {
            f.sim.boxes.script(MsgAnswer::Yes);
            f.sim.filedialogs.scriptSave(f.path("myreport.txt"));
            r.mnuclear->trigger();
            QCOMPARE(f.rows(), rows);
        }
    }

    // Clearing, "Exit" and the close box each ask whether to save first; a cancelled save is
    // a cancel.
    void clearExitAndTheCloseBoxAskWhetherToSaveFirst_data()
    {
        QTest::addColumn<QString>("way");
        QTest::addColumn<MsgAnswer>("answer");
        QTest::addColumn<bool>("saveChosen");
        QTest::addColumn<bool>("goes"); // the rows are cleared, or the window goes
        for (const char* way : {"clear", "exit", "close box"}) {
            QTest::addRow("%s: yes, saved", way) << QString(way) << MsgAnswer::Yes << true << true;
            QTest::addRow("%s: yes, save cancelled", way) << QString(way) << MsgAnswer::Yes << false << false;
            QTest::addRow("%s: no", way) << QString(way) << MsgAnswer::No << false << true;
            QTest::addRow("%s: cancel", way) << QString(way) << MsgAnswer::Cancel << true << false;
        }
    }
    void clearExitAndTheCloseBoxAskWhetherToSaveFirst()
    {
        QFETCH(QString, way);
        QFETCH(MsgAnswer, answer);
        QFETCH(bool, saveChosen);
        QFETCH(bool, goes);
        Fleet f;
        QPointer<ReportWindow> r = &f.open();
        const int rows = r->rows().count();
        f.sim.boxes.script(answer);
        if (saveChosen)
            f.sim.filedialogs.scriptSave(f.path("saved.txt"));
        if (way == "clear")
            r->mnuclear->trigger();
        else if (way == "exit")
            r->mnuclose->trigger();
        else
            r->close();
        QCOMPARE(f.boxTexts(), QStringList{way == "clear" ? "Do you want to save the contents before clearing ?       "
                                                          : "Do you want to save the contents before closing  ?       "});
        QCOMPARE(f.sim.boxes.shown.first().buttons, platform::MsgButtons::YesNoCancel);
        const bool saved = answer == MsgAnswer::Yes && saveChosen;
        QCOMPARE(f.fileExists("saved.txt"), saved);
        if (saved)
            QCOMPARE(f.readBytes("saved.txt").count("\r\n"), rows);
        if (way == "clear") {
            QCOMPARE(r->rows().count(), goes ? 0 : rows);
            // An empty list asks nothing.
            r->rows().clear();
            r->mnuclear->trigger();
            QCOMPARE(f.boxTexts().size(), 1);
        } else if (!goes) {
            QVERIFY(r && r->isVisible());
            QCOMPARE(r->rows().count(), rows);
        } else if (way == "close box") {
            // Closed by the close box the report is unloaded; the next opening starts afresh.
            QTRY_VERIFY(!r);
            QVERIFY(!f.program->loadedReportWindow());
            f.program->showReport();
            QCOMPARE(f.program->reportWindow()->rows().count(), rows);
        } else {
            // Hidden by "Exit", it keeps its rows and goes on scanning.
            QVERIFY(!r->isVisible());
            QCOMPARE(r->rows().count(), rows);
            f.minutes(5);
            QCOMPARE(r->rows().count(), 2 * rows);
        }
    }

    void closingAnEmptyReportAsksNothingAndStoresItsPlacement()
    {
        Fleet f;
        QPointer<ReportWindow> r = &f.open([](core::SettingsRecord& s) { s.reportrunning = s.reportnotrunning = s.reporterrors = false; });
        r->move(40, 30);
        r->resize(700, 400);
        const QSize size = r->size();
        r->close();
        QVERIFY(f.boxTexts().isEmpty());
        QTRY_VERIFY(!r);
        const core::SettingsRecord& s = f.program->state.settings;
        QCOMPARE(s.reportwidth, QString::number(size.width() * 15));
        QCOMPARE(s.reportheight, QString::number(size.height() * 15));
    }

    void theAutomateDialogChecksAndStoresItsFields()
    {
        Fleet f;
        ReportWindow& r = f.open([](core::SettingsRecord& s) { s.autoexport = true; s.autoexportcount = ""; });
        core::SettingsRecord& s = f.program->state.settings;
        r.mnuautomate->trigger();
        QPointer<report::AutomateDialog> d = r.automateDialog();
        // An empty count is refused, then an empty path first of all.
        d->Command2->click();
        QCOMPARE(f.boxTexts(), QStringList{"Please enter valid count of items !"});
        d->Text1->clear();
        d->Command2->click();
        QCOMPARE(f.boxTexts().last(), "Please enter valid path and filename !");
        QVERIFY(d && d->isVisible());
        // The folder browser fills in a folder for the file name to follow.
        f.sim.filedialogs.scriptFolder(f.dir.path());
        d->Command1->click();
        QTest::keyClicks(d->Text1, "archive.txt");
        QTest::keyClicks(d->Text2, "25");
        QCOMPARE(d->Text2->text(), "105");
        d->Option2->click();
        d->Command2->click();
        QTRY_VERIFY(!d);
        QCOMPARE((QStringList{core::boolText(s.autoexport), core::boolText(s.autoexportoverwrite), s.autoexportfile,
                              s.autoexportcount}),
                 (QStringList{"True", "True", f.path("archive.txt"), "105"}));
        // Unchecked, nothing is checked and an empty path and a count of 0 are stored.
        r.mnuautomate->trigger();
        d = r.automateDialog();
        d->Check1->click();
        d->Command2->click();
        QTRY_VERIFY(!d);
        QCOMPARE((QStringList{core::boolText(s.autoexport), s.autoexportfile, s.autoexportcount}),
                 (QStringList{"False", "", "0"}));
    }

    void theAutomaticExportCreatesAppendsOrReplacesItsFile_data()
    {
        QTest::addColumn<bool>("overwrite");
        QTest::addColumn<bool>("fileThere");
        QTest::addColumn<QString>("kept");
        QTest::newRow("append to a missing file") << false << false << "";
        QTest::newRow("append to an existing file") << false << true << "old line\r\n";
        QTest::newRow("overwrite") << true << true << "";
    }
    void theAutomaticExportCreatesAppendsOrReplacesItsFile()
    {
        QFETCH(bool, overwrite);
        QFETCH(bool, fileThere);
        QFETCH(QString, kept);
        Fleet f;
        if (fileThere)
            f.writeFile("auto.txt", {"old line"});
        // Five rows a scan, a threshold of 10: the second scan exports.
        ReportWindow& r = f.open([&](core::SettingsRecord& s) {
            s.autoexport = true;
            s.autoexportoverwrite = overwrite;
            s.autoexportcount = "10";
        });
        f.program->state.settings.autoexportfile = f.path("auto.txt");
        QCOMPARE(r.rows().count(), 5); // the first scan of loading exports nothing
        f.minutes(5);
        QCOMPARE(r.rows().count(), 0);
        const QString first = exported(f, "auto.txt");
        QVERIFY(first.startsWith(kept));
        QCOMPARE(first.mid(kept.size()).count("\r\n"), 10);
        f.minutes(5);
        QCOMPARE(r.rows().count(), 5);
        QCOMPARE(exported(f, "auto.txt"), first);
        f.minutes(5);
        QCOMPARE(r.rows().count(), 0);
        const QString second = exported(f, "auto.txt");
        QCOMPARE(second.count("\r\n"), overwrite ? 10 : first.count("\r\n") + 10);
    }

    void aFailedAutomaticExportLogsOnceKeepsTheRowsAndTriesAgain()
    {
        Fleet f;
        ReportWindow& r = f.open([](core::SettingsRecord& s) {
            s.autoexport = true;
            s.autoexportcount = "5";
        });
        f.program->state.settings.autoexportfile = f.path("auto.txt");
        f.sim.files.failOn(SimTextFiles::Op::Write, "auto.txt");
        const qint64 logBefore = f.readBytes("Jobs.log").size();
        f.minutes(5);
        QCOMPARE(r.rows().count(), 10);
        const QStringList logged = QString::fromUtf8(f.readBytes("Jobs.log").mid(logBefore)).split("\r\n", Qt::SkipEmptyParts);
        QCOMPARE(logged.size(), 1);
        QVERIFY(logged.first().contains("Automatic export to " + f.path("auto.txt") + " failed"));
        f.sim.files.clearFailures();
        f.minutes(5);
        QCOMPARE(r.rows().count(), 0);
        QCOMPARE(f.readBytes("auto.txt").count("\r\n"), 15);
    }
};

QTEST_MAIN(ReportWindowTest)
#include "tst_reportwindow.moc"
