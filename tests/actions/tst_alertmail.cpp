// The alert mail text, byte for byte: both subjects and both bodies, the fixed order of the
// results whatever the order of the actions, empty results keeping their places, and the date
// and time in the regional format.
#include "actions/alertmail.h"

#include <QTest>

using namespace velmora;
using actions::AlertMail;

namespace {

AlertMail sample()
{
    return AlertMail(QStringLiteral("SRV01"), QStringLiteral("Spooler"), QStringLiteral("Stopped"),
                     QStringLiteral("16.11.2026"), QStringLiteral("20:50:14"),
                     {QStringLiteral("Attemp to restart service : Spooler Successfull"),
                      QStringLiteral("Program started: /opt/tools/page-oncall"), QStringLiteral("Alert activated"),
                      QStringLiteral("The Net Message was successfully sent to ops."),
                      QStringLiteral("Play Sound /usr/share/sounds/alarm.wav successfully")});
}

} // namespace

class TestAlertMail : public QObject {
    Q_OBJECT
private slots:
    void profileFormHasFiveLinesAnEmptyOneAndTheResults()
    {
        const AlertMail m = sample();
        QCOMPARE(m.profileSubject(), QStringLiteral("Service Status  SRV01  Spooler  Stopped"));
        QCOMPARE(m.profileBody().toUtf8(),
                 QByteArray("Velmora has noticed that\r\n"
                            "on: 16.11.2026  at: 20:50:14\r\n"
                            "the Service:  Spooler\r\n"
                            "on Computer: SRV01 is Stopped.\r\n"
                            "\r\n"
                            "Attemp to restart service : Spooler Successfull\r\n"
                            "Program started: /opt/tools/page-oncall\r\n"
                            "Alert activated\r\n"
                            "The Net Message was successfully sent to ops.\r\n"
                            "Play Sound /usr/share/sounds/alarm.wav successfully"));
    }

    void smtpFormIsOneLine()
    {
        const AlertMail m = sample();
        QCOMPARE(m.smtpSubject(), QStringLiteral("Service Status SRV01 Spooler Stopped"));
        QCOMPARE(m.smtpBody().toUtf8(),
                 QByteArray("Velmora has noticed that on: 16.11.2026  at: 20:50:14   the Service:  Spooler"
                            "  on Computer: SRV01 is Stopped"
                            "  Attemp to restart service : Spooler Successfull"
                            "  Program started: /opt/tools/page-oncall"
                            "  Alert activated"
                            "  The Net Message was successfully sent to ops."
                            "  Play Sound /usr/share/sounds/alarm.wav successfully"));
    }

    void resultsThatNeverRanKeepTheirPlaces()
    {
        // Only the alert has run since the program started: the other four are empty texts,
        // yet every separator stays.
        const AlertMail m(QStringLiteral("DC1"), QStringLiteral("cups.service"), QStringLiteral("Paused"),
                          QStringLiteral("16.11.2026"), QStringLiteral("8:50:14 PM"),
                          {{}, {}, QStringLiteral("Alert activated"), {}, {}});
        QCOMPARE(m.profileBody(), QStringLiteral("Velmora has noticed that\r\non: 16.11.2026  at: 8:50:14 PM\r\n"
                                                 "the Service:  cups.service\r\non Computer: DC1 is Paused.\r\n\r\n"
                                                 "\r\n\r\nAlert activated\r\n\r\n"));
        QCOMPARE(m.smtpBody(), QStringLiteral("Velmora has noticed that on: 16.11.2026  at: 8:50:14 PM   the Service:  "
                                              "cups.service  on Computer: DC1 is Paused      Alert activated    "));
    }

    void theFailureTheResultsTheDateAndTheRegionalTime()
    {
        core::Failure failure{QStringLiteral("SRV01"), {}, QStringLiteral("Stopped"), {}};
        failure.record.servicename = QStringLiteral("spooler");
        const actions::ActionResults state{"R", "P", "A", "N", "S", {}, {}, {}};
        const QDateTime at(QDate(2026, 11, 16), QTime(20, 50, 14));
        const AlertMail de = AlertMail::of(failure, state, at, QLocale(QLocale::German, QLocale::Germany));
        QCOMPARE(de.smtpSubject(), QStringLiteral("Service Status SRV01 spooler Stopped"));
        QCOMPARE(de.smtpBody(), QStringLiteral("Velmora has noticed that on: 16.11.2026  at: 20:50:14   the Service:  "
                                               "spooler  on Computer: SRV01 is Stopped  R  P  A  N  S"));
        const AlertMail us = AlertMail::of(failure, state, at, QLocale(QLocale::English, QLocale::UnitedStates));
        QVERIFY(us.profileBody().startsWith(QStringLiteral("Velmora has noticed that\r\non: 16.11.2026  at: 8:50:14 PM\r\n")));
        QVERIFY(us.profileBody().endsWith(QStringLiteral("\r\n\r\nR\r\nP\r\nA\r\nN\r\nS")));
    }
};

QTEST_MAIN(TestAlertMail)
#include "tst_alertmail.moc"
