#include "platform/linux/tonebeeper.h"

#include <QAudioDevice>
#include <QAudioSink>
#include <QMediaDevices>
#include <QMutexLocker>

#include <algorithm>
#include <cstring>
#include <cmath>
#include <numbers>

namespace velmora::platform {

namespace {
constexpr double kAmplitude = 0.5; // of full scale: loud enough, never clipping
constexpr int kRampMs = 5;
} // namespace

ToneSource::ToneSource(const QAudioFormat& format, QObject* parent) : QIODevice(parent), format_(format)
{
    rampFrames_ = std::max<qint64>(1, qint64(format.sampleRate()) * kRampMs / 1000);
    // Unbuffered: the sink pulls only what it plays, so extend() acts on the tone still to come.
    QIODevice::open(QIODevice::ReadOnly | QIODevice::Unbuffered);
}

void ToneSource::extend(int frequencyHz, int durationMs)
{
    QMutexLocker lock(&mutex_);
    if (remaining_ == 0) {
        sinceStart_ = 0;
        phase_ = 0;
    }
    frequency_ = frequencyHz;
    const qint64 frames = qint64(format_.sampleRate()) * std::max(durationMs, 0) / 1000;
    remaining_ = std::max(remaining_, frames);
}

qint64 ToneSource::remainingFrames() const
{
    QMutexLocker lock(&mutex_);
    return remaining_;
}

qint64 ToneSource::bytesAvailable() const
{
    QMutexLocker lock(&mutex_);
    return remaining_ * format_.bytesPerFrame() + QIODevice::bytesAvailable();
}

qint64 ToneSource::readData(char* data, qint64 maxlen)
{
    QMutexLocker lock(&mutex_);
    const int bytesPerFrame = format_.bytesPerFrame();
    const int channels = format_.channelCount();
    if (bytesPerFrame <= 0)
        return 0;
    const qint64 frames = std::min(remaining_, maxlen / bytesPerFrame);
    const double step = 2.0 * std::numbers::pi * frequency_ / format_.sampleRate();
    for (qint64 i = 0; i < frames; ++i) {
        const qint64 left = remaining_ - i;
        const double ramp = std::min({1.0, double(sinceStart_ + i + 1) / rampFrames_, double(left) / rampFrames_});
        const double value = kAmplitude * ramp * std::sin(phase_);
        phase_ += step;
        if (phase_ > 2.0 * std::numbers::pi)
            phase_ -= 2.0 * std::numbers::pi;
        char* frame = data + i * bytesPerFrame;
        for (int c = 0; c < channels; ++c) {
            if (format_.sampleFormat() == QAudioFormat::Float) {
                const float f = float(value);
                std::memcpy(frame + c * sizeof(float), &f, sizeof(float));
            } else {
                const qint16 s = qint16(std::lround(value * 32767.0));
                std::memcpy(frame + c * sizeof(qint16), &s, sizeof(qint16));
            }
        }
    }
    remaining_ -= frames;
    sinceStart_ += frames;
    return frames * bytesPerFrame;
}

ToneBeeper::ToneBeeper() = default;

ToneBeeper::~ToneBeeper()
{
    if (sink_)
        sink_->stop();
    delete sink_;
    delete source_;
}

bool ToneBeeper::ensureSink()
{
    if (sink_)
        return true;
    const QAudioDevice device = QMediaDevices::defaultAudioOutput();
    if (device.isNull())
        return false;
    QAudioFormat format;
    format.setSampleRate(44100);
    format.setChannelCount(1);
    format.setSampleFormat(QAudioFormat::Int16);
    if (!device.isFormatSupported(format)) {
        format = device.preferredFormat();
        if (format.sampleFormat() != QAudioFormat::Int16 && format.sampleFormat() != QAudioFormat::Float)
            format.setSampleFormat(QAudioFormat::Int16);
        if (!device.isFormatSupported(format))
            return false;
    }
    source_ = new ToneSource(format);
    sink_ = new QAudioSink(device, format);
    return true;
}

void ToneBeeper::beep(int frequencyHz, int durationMs)
{
    if (frequencyHz <= 0 || durationMs <= 0 || !ensureSink())
        return;
    source_->extend(frequencyHz, durationMs);
    if (sink_->state() != QAudio::ActiveState) {
        sink_->stop();
        sink_->start(source_);
    }
}

} // namespace velmora::platform
