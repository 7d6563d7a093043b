#pragma once
// Message boxes as Qt shows them: modal, over the window that is active.
#include "platform/messageboxes.h"

namespace velmora::platform {

class QtMessageBoxes : public MessageBoxes {
public:
    MsgAnswer show(const QString& text, MsgIcon icon, MsgButtons buttons, const QString& title) override;
};

} // namespace velmora::platform
