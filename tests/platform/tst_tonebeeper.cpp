// The beeper's tone: the samples it produces in the formats audio outputs offer.
#include "platform/linux/tonebeeper.h"

#include <QAudioFormat>
#include <QTest>

#include <cmath>

using velmora::platform::ToneSource;

namespace {

QAudioFormat format(QAudioFormat::SampleFormat sampleFormat, int channels)
{
    QAudioFormat f;
    f.setSampleRate(8000);
    f.setChannelCount(channels);
    f.setSampleFormat(sampleFormat);
    return f;
}

QByteArray drain(ToneSource& source, qint64 chunk = 1 << 20)
{
    QByteArray out;
    for (;;) {
        const QByteArray part = source.read(chunk);
        if (part.isEmpty())
            return out;
        out += part;
    }
}

} // namespace

class TestToneBeeper : public QObject {
    Q_OBJECT
private slots:
    void aBeepIsASineOfItsFrequencyAndLength()
    {
        ToneSource source(format(QAudioFormat::Int16, 1));
        source.extend(1000, 100);
        QCOMPARE(source.remainingFrames(), 800);
        const QByteArray bytes = drain(source);
        QCOMPARE(bytes.size(), 1600);
        const QList<qint16> s(reinterpret_cast<const qint16*>(bytes.constData()),
                              reinterpret_cast<const qint16*>(bytes.constData()) + 800);
        QCOMPARE(source.remainingFrames(), 0);
        int crossings = 0;
        int peak = 0;
        for (qsizetype i = 1; i < s.size(); ++i) {
            if ((s[i - 1] < 0) != (s[i] < 0))
                ++crossings;
            peak = std::max(peak, std::abs(int(s[i])));
        }
        QVERIFY2(std::abs(crossings - 200) <= 2, qPrintable(QString::number(crossings)));
        QVERIFY(peak > 12000 && peak < 32767);
        // Ramped at both ends: no click.
        QVERIFY(std::abs(int(s.first())) < 2000);
        QVERIFY(std::abs(int(s.last())) < 2000);
    }

    void floatStereoFillsEveryChannel()
    {
        ToneSource source(format(QAudioFormat::Float, 2));
        source.extend(440, 20);
        const QByteArray bytes = drain(source);
        QCOMPARE(bytes.size(), 160 * 2 * 4);
        const auto* f = reinterpret_cast<const float*>(bytes.constData());
        float peak = 0;
        for (int i = 0; i < 160; ++i) {
            QCOMPARE(f[2 * i], f[2 * i + 1]);
            peak = std::max(peak, std::abs(f[2 * i]));
        }
        QVERIFY(peak > 0.3f && peak <= 1.0f);
    }
};

QTEST_MAIN(TestToneBeeper)
#include "tst_tonebeeper.moc"
