#pragma once
// Modal message boxes, titled "Velmora" unless a caller names another title.
#include <QString>

class QWidget;

namespace velmora::platform {

enum class MsgIcon { None, Critical, Question, Exclamation, Information };
enum class MsgButtons { Ok, OkCancel, YesNo, YesNoCancel };
enum class MsgAnswer { Ok, Cancel, Yes, No };

class MessageBoxes {
public:
    virtual ~MessageBoxes() = default;
    // Shows the box and returns the button the user chose; blocks the caller (not the event loop).
    virtual MsgAnswer show(const QString& text, MsgIcon icon, MsgButtons buttons = MsgButtons::Ok,
                           const QString& title = QStringLiteral("Velmora")) = 0;
};

} // namespace velmora::platform
