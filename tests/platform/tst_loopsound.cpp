// The looping WAV player: every reason a file cannot be played is found before anything plays,
// with its code; a good WAV plays (or, on a machine without audio output, says so with 21).
#include "platform/linux/loopsound.h"
#include "platform/linux/qtfiledialogs.h"
#include "support/bytefiles.h"

#include <QAudioDevice>
#include <QFile>
#include <QMediaDevices>
#include <QTemporaryDir>
#include <QTest>
#include <QtEndian>
#include <unistd.h>

using namespace velmora::platform;

namespace {

// A short mono WAV; format 1 is PCM. extraChunk goes between "WAVE" and "fmt ".
QByteArray wav(quint16 format = 1, const QByteArray& extraChunk = {})
{
    const auto le = [](quint32 v, int bytes) {
        QByteArray b(4, '\0');
        qToLittleEndian<quint32>(v, b.data());
        return b.left(bytes);
    };
    // mono, 8000 frames a second, 16 bits
    const QByteArray fmt = le(format, 2) + le(1, 2) + le(8000, 4) + le(16000, 4) + le(2, 2) + le(16, 2);
    const QByteArray body = "WAVE" + extraChunk + "fmt " + le(16, 4) + fmt + "data" + le(1600, 4) + QByteArray(1600, '\0');
    return "RIFF" + le(quint32(body.size()), 4) + body;
}

QString put(const QTemporaryDir& dir, const QString& name, const QByteArray& bytes)
{
    velmora::test::putBytes(dir.filePath(name), bytes);
    return dir.filePath(name);
}

} // namespace

class TestLoopSound : public QObject {
    Q_OBJECT
private slots:
    void filesThatCannotPlayAreFoundFirst()
    {
        QTemporaryDir dir;
        QCOMPARE(LoopSound::checkWavFile(dir.filePath("missing.wav")), 2);
        QCOMPARE(LoopSound::checkWavFile(dir.filePath("nofolder/a.wav")), 3);
        QCOMPARE(LoopSound::checkWavFile(dir.path()), 5);
        QCOMPARE(LoopSound::checkWavFile(put(dir, "notes.txt", "just some text\n")), 11);
        QCOMPARE(LoopSound::checkWavFile(put(dir, "short.wav", wav().left(30))), 11);
        QCOMPARE(LoopSound::checkWavFile(put(dir, "mp3.wav", wav(0x55))), 11); // MPEG inside a WAV
        QCOMPARE(LoopSound::checkWavFile(put(dir, "good.wav", wav())), 0);
        QCOMPARE(LoopSound::checkWavFile(put(dir, "float.wav", wav(3))), 0);
        // A chunk of odd size before "fmt " is followed by a pad byte.
        QCOMPARE(LoopSound::checkWavFile(put(dir, "list.wav", wav(1, QByteArray("LIST\x03\0\0\0abc\0", 12)))), 0);
        if (geteuid() != 0) {
            const QString locked = put(dir, "locked.wav", wav());
            QFile::setPermissions(locked, QFileDevice::Permissions());
            QCOMPARE(LoopSound::checkWavFile(locked), 5);
        }
    }

    void goodFileLoopsOrReportsMissingOutput()
    {
        QTemporaryDir dir;
        LoopSound sound;
        QCOMPARE(sound.playLoop(dir.filePath("missing.wav")), 2);
        const int code = sound.playLoop(put(dir, "good.wav", wav()));
        QCOMPARE(code, QMediaDevices::defaultAudioOutput().isNull() ? 21 : 0);
        QCOMPARE(sound.stop(), 0);
        QCOMPARE(sound.stop(), 0); // nothing playing: still fine
    }
};

QTEST_MAIN(TestLoopSound)
#include "tst_loopsound.moc"
