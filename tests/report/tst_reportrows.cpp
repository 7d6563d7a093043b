#include "report/reportexport.h"
#include "report/reportrows.h"

#include <QAbstractItemModelTester>
#include <QPersistentModelIndex>
#include <QTest>

using namespace velmora;
using report::ReportRow;
using report::ReportRows;

namespace {

ReportRow row(const QString& date, const QString& computer, bool running = false)
{
    ReportRow r;
    r.texts[report::DateColumn] = date;
    r.texts[report::TimeColumn] = "08:00:00";
    r.texts[report::ComputerColumn] = computer;
    r.texts[report::ServiceColumn] = "svc";
    r.texts[report::StateColumn] = running ? "Running" : "Stopped";
    r.texts[report::ActionsColumn] = "Alert";
    r.texts[report::AckColumn] = " ";
    r.running = running;
    return r;
}

QStringList column(const ReportRows& rows, int c)
{
    QStringList out;
    for (int i = 0; i < rows.count(); ++i)
        out << rows.at(i).texts[c];
    return out;
}

} // namespace

class ReportRowsTest : public QObject {
    Q_OBJECT
private slots:
    void datesSortAsTextNotAsDates()
    {
        ReportRows rows;
        QAbstractItemModelTester tester(&rows);
        rows.add({row("12/1/2025", "A"), row("1/15/2026", "B"), row("2/3/2026", "C"), row("11/30/2025", "D")});
        rows.sortBy(report::DateColumn, Qt::AscendingOrder);
        QCOMPARE(column(rows, report::DateColumn), (QStringList{"1/15/2026", "11/30/2025", "12/1/2025", "2/3/2026"}));
        rows.sortBy(report::DateColumn, Qt::DescendingOrder);
        QCOMPARE(column(rows, report::DateColumn), (QStringList{"2/3/2026", "12/1/2025", "11/30/2025", "1/15/2026"}));
    }

    void sortingIgnoresCaseKeepsEqualRowsInOrderAndMergesNewRows()
    {
        ReportRows rows;
        QAbstractItemModelTester tester(&rows);
        rows.add({row("d", "web1"), row("d", "DB2"), row("d", "WEB1"), row("d", "app3")});
        rows.sortBy(report::ComputerColumn, Qt::AscendingOrder);
        QCOMPARE(column(rows, report::ComputerColumn), (QStringList{"app3", "DB2", "web1", "WEB1"}));
        // While sorting is on, new rows go to their places, after the rows equal to them.
        rows.add({row("e", "WEB1"), row("e", "cache"), row("e", "APP3")});
        QCOMPARE(column(rows, report::ComputerColumn),
                 (QStringList{"app3", "APP3", "cache", "DB2", "web1", "WEB1", "WEB1"}));
        QCOMPARE(column(rows, report::DateColumn), (QStringList{"d", "e", "e", "d", "d", "d", "e"}));
    }

    void aSelectedRowStaysSelectedThroughSortsAndRemovals()
    {
        ReportRows rows;
        rows.add({row("1", "C"), row("2", "A"), row("3", "B")});
        QPersistentModelIndex selected = rows.index(0, 3); // C
        rows.sortBy(report::ComputerColumn, Qt::AscendingOrder);
        QCOMPARE(selected.row(), 2);
        QCOMPARE(selected.column(), 3);
        rows.add({row("4", "AA")});
        QCOMPARE(selected.row(), 3);
        QCOMPARE(rows.at(selected.row()).texts[report::ComputerColumn], "C");
    }

    void removeBeforeDropsOnlyTheRowsThatWereThere()
    {
        ReportRows rows;
        QAbstractItemModelTester tester(&rows);
        rows.add({row("1", "B"), row("1", "D")});
        const quint64 exported = rows.nextSerial();
        rows.sortBy(report::ComputerColumn, Qt::AscendingOrder);
        rows.add({row("2", "A"), row("2", "C"), row("2", "E")});
        rows.removeBefore(exported);
        QCOMPARE(column(rows, report::ComputerColumn), (QStringList{"A", "C", "E"}));
        rows.removeBefore(rows.nextSerial());
        QVERIFY(rows.isEmpty());
    }

    void coloursFollowTheStateAndTheAcknowledgement()
    {
        ReportRows rows;
        rows.add({row("1", "A", true), row("1", "B", false)});
        const auto colours = [&](int r) {
            QList<int> out;
            for (int c = 0; c < report::kColumnCount; ++c)
                out << rows.data(rows.index(r, c), ReportRows::ColourRole).toInt();
            return out;
        };
        using namespace report::colour;
        QCOMPARE(colours(0), (QList<int>{-1, -1, green, green, green, -1, -1}));
        QCOMPARE(colours(1), (QList<int>{-1, -1, red, red, red, -1, -1}));
        rows.acknowledge(1);
        QCOMPARE(colours(1), (QList<int>{-1, -1, cyan, red, red, -1, -1}));
        QCOMPARE(rows.at(1).texts[report::AckColumn], "Acknowledged");
        QCOMPARE(rows.exportLines(), (QStringList{"1\t08:00:00\tA\tsvc\tRunning\tAlert\t ",
                                                  "1\t08:00:00\tB\tsvc\tStopped\tAlert\tAcknowledged"}));
    }

    void exportPathsEndInTxt_data()
    {
        QTest::addColumn<QString>("chosen");
        QTest::addColumn<QString>("written");
        QTest::newRow("none") << "/tmp/out" << "/tmp/out.txt";
        QTest::newRow("other") << "/tmp/out.log" << "/tmp/out.txt";
        QTest::newRow("txt") << "/tmp/out.txt" << "/tmp/out.txt";
        QTest::newRow("dot at the end") << "/tmp/out." << "/tmp/out.txt";
        QTest::newRow("dotted folder") << "/tmp/a.b/out" << "/tmp/a.b/out.txt";
        QTest::newRow("hidden file") << "/tmp/.out" << "/tmp/.out.txt";
    }
    void exportPathsEndInTxt()
    {
        QFETCH(QString, chosen);
        QFETCH(QString, written);
        QCOMPARE(report::txtPath(chosen), written);
    }

    void thresholdTexts_data()
    {
        QTest::addColumn<QString>("typed");
        QTest::addColumn<QString>("kept");
        QTest::newRow("empty") << "" << "10";
        QTest::newRow("nine") << "9" << "10";
        QTest::newRow("number then letters") << "50x" << "10";
        QTest::newRow("in range") << "250" << "250";
        QTest::newRow("10000") << "10000" << "10000";
        QTest::newRow("six digits") << "123456" << "10000";
    }
    void thresholdTexts()
    {
        QFETCH(QString, typed);
        QFETCH(QString, kept);
        QCOMPARE(report::thresholdText(typed), kept);
    }
};

QTEST_MAIN(ReportRowsTest)
#include "tst_reportrows.moc"
