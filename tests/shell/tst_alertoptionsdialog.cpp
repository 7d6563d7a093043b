// "Alert Options..." from the Services menu: damaged files are said once and left as they are,
// and what OK stores takes effect at once.
#include "joblog/logandalerts.h"
#include "monitoring/alertkeeper.h"
#include "monitoring/alertoptionsdialog.h"
#include "support/windowfixture.h"

#include <QCheckBox>
#include <QPushButton>
#include <QRegularExpression>
#include <QSpinBox>
#include <QTest>

using namespace velmora;

class TestAlertOptionsDialog : public QObject {
    Q_OBJECT
private slots:
    void optionsAreStoredAndTakeEffect_data()
    {
        QTest::addColumn<QByteArray>("options");
        QTest::addColumn<QByteArray>("state");
        QTest::addColumn<QString>("logged"); // what start-up says in the job log
        QTest::addColumn<bool>("once");      // what the dialog shows
        QTest::newRow("no files") << QByteArray() << QByteArray() << "" << false;
        QTest::newRow("hand-edited, blanks and LF") << QByteArray("Once = true\n\nRemindScans= 4\n") << QByteArray()
                                                    << "" << true;
        QTest::newRow("not a Boolean") << QByteArray("Once=maybe\r\n") << QByteArray() << "are damaged (line 1" << false;
        QTest::newRow("unknown option") << QByteArray("Once=True\r\nColour=Red\r\n") << QByteArray()
                                        << "are damaged (line 2" << false;
        QTest::newRow("bad number") << QByteArray("RemindScans=-3\r\n") << QByteArray() << "are damaged" << false;
        QTest::newRow("damaged state") << QByteArray() << QByteArray("Scan\t1\r\nFailure\tDC1\r\n")
                                       << "cannot be read; they are forgotten" << false;
    }
    void optionsAreStoredAndTakeEffect()
    {
        QFETCH(QByteArray, options);
        QFETCH(QByteArray, state);
        QFETCH(QString, logged);
        QFETCH(bool, once);
        test::WindowFixture f;
        if (!options.isEmpty())
            f.writeBytes("AlertOptions", options);
        if (!state.isEmpty())
            f.writeBytes("AlertState", state);
        auto& w = f.start();
        const QStringList said = f.logLines().filter(QRegularExpression("alert options|failures kept"));
        QCOMPARE(said.size(), logged.isEmpty() ? 0 : 1);
        if (!logged.isEmpty())
            QVERIFY2(said.first().contains(logged), qPrintable(said.first()));

        w.mnualertoptions->trigger();
        auto* d = w.findChild<monitoring::AlertOptionsDialog*>("FormAlertOptions");
        QVERIFY(d && d->isVisible());
        QCOMPARE(f.sim.boxes.shown.size(), logged.contains("damaged") ? 1 : 0);
        QCOMPARE(d->Check1->isChecked(), once);
        QCOMPARE(d->Spin1->isEnabled(), once);
        QCOMPARE(f.readBytes("AlertOptions"), options);
        QCOMPARE(f.readBytes("AlertState"), state);

        d->Check1->setChecked(true);
        d->Spin1->setValue(3);
        d->Check4->setChecked(true);
        d->OKButton->click();
        QVERIFY(!d->isVisible());
        QVERIFY(f.readBytes("AlertOptions").startsWith("Once=True\r\nRemindScans=3\r\nServerDown=False\r\n"));
        QCOMPARE(f.program->keeper->options().remindScans, 3);
        QVERIFY(f.program->logandalerts->journalShown() && f.program->logandalerts->acknowledgeShown());
    }
};

QTEST_MAIN(TestAlertOptionsDialog)
#include "tst_alertoptionsdialog.moc"
