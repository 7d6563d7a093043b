#pragma once
// The check interval: the text of "Interval" as it stands (minutes, "15 Minutes" and "2.5"
// included), which the setup window shows and edits, the check cycle goes by and the setup's OK
// stores. The cycle reads only its leading whole number; without one, or below 1, every tick of
// the scheduler starts a scan.
#include "core/writeresult.h"

#include <QObject>
#include <QString>

namespace velmora::platform { class TextFiles; }

namespace velmora::core {

// The leading whole number of a text ("15 Minutes" is 15), 0 when it has none.
int leadingNumber(const QString& text);

class Schedule : public QObject {
    Q_OBJECT
public:
    explicit Schedule(QObject* parent = nullptr) : QObject(parent) {}

    // The interval as text; null until one has been read or chosen.
    const QString& text() const { return text_; }
    // The minutes between timed scans.
    int minutes() const { return leadingNumber(text_); }

    void setText(const QString& minutes);
    // Reads "Interval" (its first line), creating it with "30" when it does not exist.
    void read(platform::TextFiles& files, const QString& path);
    // Stores the interval in "Interval".
    WriteResult save(platform::TextFiles& files, const QString& path) const;

signals:
    void changed(const QString& minutes);

private:
    QString text_;
};

} // namespace velmora::core
