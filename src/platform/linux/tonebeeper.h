#pragma once
#include "platform/beeper.h"

#include <QAudioFormat>
#include <QIODevice>
#include <QMutex>
#include <QPointer>

class QAudioSink;

namespace velmora::platform {

// An endless-on-demand sine tone in PCM for an audio sink to pull. extend() keeps the tone going
// for at least the given time from now, so beeps that overlap join into one tone with no gap
// and no restart of the wave. The first and last few milliseconds are ramped to avoid clicks.
class ToneSource : public QIODevice {
public:
    explicit ToneSource(const QAudioFormat& format, QObject* parent = nullptr);
    void extend(int frequencyHz, int durationMs);
    // Frames still to be produced.
    qint64 remainingFrames() const;
    bool isSequential() const override { return true; }
    qint64 bytesAvailable() const override;

protected:
    qint64 readData(char* data, qint64 maxlen) override;
    qint64 writeData(const char*, qint64) override { return -1; }

private:
    mutable QMutex mutex_;
    QAudioFormat format_;
    double frequency_ = 0;
    double phase_ = 0;         // radians
    qint64 remaining_ = 0;     // frames
    qint64 sinceStart_ = 0;    // frames since the tone began from silence
    qint64 rampFrames_ = 0;
};

// Plays beeps on the default audio output through Qt Multimedia. Without an output device (or
// with one that takes neither 16-bit nor float samples) beeps are silently dropped.
class ToneBeeper : public Beeper {
public:
    ToneBeeper();
    ~ToneBeeper() override;
    void beep(int frequencyHz, int durationMs) override;

private:
    bool ensureSink();
    QAudioSink* sink_ = nullptr;
    ToneSource* source_ = nullptr;
};

} // namespace velmora::platform
