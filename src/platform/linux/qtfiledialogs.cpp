#include "platform/linux/qtfiledialogs.h"

#include <QFileDialog>

namespace velmora::platform {

QString QtFileDialogs::nameFilter(const QString& filterName, const QString& pattern)
{
    QString caption = filterName;
    if (const qsizetype open = caption.indexOf(QLatin1Char('(')); open >= 0)
        caption = caption.left(open);
    caption = caption.trimmed();
    const QString used = pattern == QStringLiteral("*.*") ? QStringLiteral("*") : pattern;
    return caption + QStringLiteral(" (") + used + QLatin1Char(')');
}

QString QtFileDialogs::openFile(QWidget* owner, const QString& title, const QString& filterName,
                                const QString& pattern)
{
    return QFileDialog::getOpenFileName(owner, title, QString(), nameFilter(filterName, pattern));
}

} // namespace velmora::platform
