#include "platform/linux/loopsound.h"

#include <QAudioDevice>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QMediaDevices>
#include <QSoundEffect>
#include <QUrl>
#include <QtEndian>

namespace velmora::platform {

namespace {

// Whether the bytes start a RIFF/WAVE file whose "fmt " chunk names a sample format the sound
// effect player decodes: PCM (1), IEEE float (3) or the extensible form (0xFFFE).
bool isPlayableWav(QFile& f)
{
    const QByteArray head = f.read(12);
    if (head.size() < 12 || !head.startsWith("RIFF") || head.mid(8, 4) != "WAVE")
        return false;
    // Walk the chunks up to "fmt "; a chunk of odd size is followed by one pad byte.
    for (int guard = 0; guard < 64; ++guard) {
        const QByteArray chunk = f.read(8);
        if (chunk.size() < 8)
            return false;
        const quint32 size = qFromLittleEndian<quint32>(chunk.constData() + 4);
        if (chunk.startsWith("fmt ")) {
            if (size < 16)
                return false;
            const QByteArray fmt = f.read(16);
            if (fmt.size() < 16)
                return false;
            const quint16 format = qFromLittleEndian<quint16>(fmt.constData());
            const quint16 channels = qFromLittleEndian<quint16>(fmt.constData() + 2);
            const quint32 rate = qFromLittleEndian<quint32>(fmt.constData() + 4);
            const quint16 bits = qFromLittleEndian<quint16>(fmt.constData() + 14);
            return (format == 1 || format == 3 || format == 0xFFFE) && channels > 0 && rate > 0 && bits > 0;
        }
        if (!f.seek(f.pos() + size + (size & 1)))
            return false;
    }
    return false;
}

} // namespace

LoopSound::LoopSound() = default;

LoopSound::~LoopSound()
{
    delete effect_.data();
}

int LoopSound::checkWavFile(const QString& file)
{
    if (file.isEmpty())
        return sounderror::fileNotFound;
    const QFileInfo info(file);
    if (!info.exists())
        return info.absoluteDir().exists() ? sounderror::fileNotFound : sounderror::pathNotFound;
    if (!info.isFile())
        return sounderror::accessDenied;
    QFile f(file);
    if (!f.open(QIODevice::ReadOnly))
        return sounderror::accessDenied;
    return isPlayableWav(f) ? sounderror::ok : sounderror::badFormat;
}

int LoopSound::playLoop(const QString& file)
{
    if (const int code = checkWavFile(file); code != sounderror::ok)
        return code;
    const QAudioDevice device = QMediaDevices::defaultAudioOutput();
    if (device.isNull())
        return sounderror::notReady;
    // One sound at a time: a new one replaces the one playing.
    delete effect_.data();
    effect_ = new QSoundEffect(device);
    effect_->setLoopCount(QSoundEffect::Infinite);
    effect_->setSource(QUrl::fromLocalFile(QFileInfo(file).absoluteFilePath()));
    effect_->play();
    return sounderror::ok;
}

int LoopSound::stop()
{
    if (effect_) {
        effect_->stop();
        effect_->deleteLater();
        effect_.clear();
    }
    return 0;
}

} // namespace velmora::platform
