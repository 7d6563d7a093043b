// Saves the program's icon as PNG files for the desktop's icon theme:
//   velmora_iconrender FOLDER   writes FOLDER/SIZExSIZE/apps/velmora.png for 16 and 32 (the sizes it is drawn in)
#include "platform/icons.h"

#include <QDir>
#include <QGuiApplication>
#include <QPixmap>
#include <cstdio>

int main(int argc, char** argv)
{
    if (argc != 2) {
        std::fprintf(stderr, "usage: %s FOLDER\n", argv[0]);
        return 2;
    }
    // Drawing needs a GUI application but no screen.
    qputenv("QT_QPA_PLATFORM", "offscreen");
    QGuiApplication app(argc, argv);
    const QString folder = QString::fromLocal8Bit(argv[1]);
    const QIcon icon = velmora::platform::programIcon();
    for (int size : {16, 32}) {
        const QString dir = QStringLiteral("%1/%2x%2/apps").arg(folder).arg(size);
        const QString file = dir + QStringLiteral("/velmora.png");
        if (!QDir().mkpath(dir) || !icon.pixmap(size, size).save(file, "PNG")) {
            std::fprintf(stderr, "cannot write %s\n", qPrintable(file));
            return 1;
        }
    }
    return 0;
}
