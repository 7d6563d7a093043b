#pragma once
// "Show Journal...": the last lines of a failed unit's journal in a window of their own, read
// off the user-interface thread.
#include <QDialog>

class QPlainTextEdit;

namespace velmora::platform { class UnitJournal; class Worker; }

namespace velmora::shell {

class JournalWindow : public QDialog {
    Q_OBJECT
public:
    JournalWindow(platform::UnitJournal* journal, platform::Worker& worker, QWidget* parent = nullptr);

    QPlainTextEdit* Text1 = nullptr;

    // Shows the window and reads the journal of server's service into it; without a journal
    // (the program has none) it says so.
    void showFor(const QString& server, const QString& service);

    static constexpr int kLines = 20;

private:
    platform::UnitJournal* journal_;
    platform::Worker& worker_;
    int asked_ = 0; // the latest request: an older answer that comes late is dropped
};

} // namespace velmora::shell
