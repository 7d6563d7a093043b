#pragma once
// The alert window Form4 "Velmora Info": every failure found since it was last cleared, the
// log-size indicator, the popup option and the reset commands.
//
// Controls are public members named as on the form; ListView1 shows the owner's AlertRows, and a
// selection is mapped back through them. Positions are kept in twips (15 per pixel) in the settings
// record (alertleft, alerttop); a left of 0 means no position is known.
#include "joblog/joblog.h"

#include <QWidget>
#include <optional>

class QAction;
class QCheckBox;
class QLabel;
class QMenu;
class QPlainTextEdit;
class QPushButton;
class QTreeWidget;

namespace velmora::joblog {

class LogAndAlerts;
struct AlertRow;

class AlertWindow : public QWidget {
    Q_OBJECT
public:
    AlertWindow(LogAndAlerts& owner, QWidget* parent = nullptr);
    ~AlertWindow() override;

    // Column widths of ListView1 in twips, in column order.
    static const int kColumnTwips[6];

    QTreeWidget* ListView1 = nullptr;
    QLabel *Label1 = nullptr, *Label2 = nullptr, *Label3 = nullptr;
    QPlainTextEdit* Text1 = nullptr; // the hidden text record of the check cycle
    QPushButton *Command1 = nullptr, *Command2 = nullptr, *Command3 = nullptr, *Command4 = nullptr;
    QCheckBox* Check1 = nullptr;
    QMenu* mnuf4context = nullptr;
    QAction* mnuf4gotoservice = nullptr;
    // Shown while the alert options use them.
    QAction *mnuf4journal = nullptr, *mnuf4acknowledge = nullptr;

    // The indicator: red above the large-log size, the button face at or below; the caption
    // only when one is given.
    void setLogSize(qint64 bytes, std::optional<SizeCaption> caption);
    bool logSizeIsRed() const;
    // Lines of the job log are being lost (text says so) or no more (empty): the indicator shows
    // text in red instead of the size, and the caption says the log is not written.
    void setLostLines(const QString& text);

    // The steps run each time the window comes to the front.
    void activate();
    // "Goto service..." and a double-click on a row.
    void gotoservice();
    // Right mouse button over the list.
    void listRightButton(const QPoint& globalPos);

protected:
    bool event(QEvent* e) override;
    void closeEvent(QCloseEvent* e) override;
    bool eventFilter(QObject* watched, QEvent* e) override;

private:
    // Stores the left and top (in twips) when each is at least the given pixel value.
    void rememberPosition(int minLeft, int minTop);
    void setCheckFromOption();
    // Adds the tree's items for rows first to last of the model.
    void showRows(int first, int last);
    // Rows first to last changed: a recovered row shows its state in green.
    void showRecovered(int first, int last);
    // The model's row of the current item, or null.
    const AlertRow* selectedRow() const;

    LogAndAlerts& owner_;
    QString lostLines_;    // what setLostLines() gave, empty while the log is written
    qint64 shownBytes_ = 0; // the size the indicator last showed
};

} // namespace velmora::joblog
