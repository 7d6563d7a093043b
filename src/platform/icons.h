#pragma once
// The small icons of the server and service lists, drawn in code so they stay sharp at any size.
// Index as in the lists' image list: 1 running, 2 stopped, 3 unknown, 4 starting, 5 stopping,
// 6 paused; 7 server reachable, 8 server unreachable, 9 monitored server reachable, 10 monitored
// server unreachable.
#include <QIcon>

class QTreeWidgetItem;

namespace velmora::platform {

QIcon imageListIcon(int index);
// A server icon while its first reachability check is still running.
QIcon pendingServerIcon(bool monitored);
// The program's own icon (window and tray).
QIcon programIcon();

// The image-list number a list item shows (0: none), kept with the item so it can be read back.
int itemIcon(const QTreeWidgetItem* item);
void setItemIcon(QTreeWidgetItem* item, int index);

} // namespace velmora::platform
