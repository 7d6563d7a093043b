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

QString QtFileDialogs::saveFile(QWidget* owner, const QString& title, const QString& filterName,
                                const QString& pattern, const QString& defaultSuffix)
{
    // The dialog is built by hand for the default suffix; it asks before replacing a file.
    QFileDialog dialog(owner, title, QString(), nameFilter(filterName, pattern));
    dialog.setAcceptMode(QFileDialog::AcceptSave);
    dialog.setFileMode(QFileDialog::AnyFile);
    dialog.setDefaultSuffix(defaultSuffix);
    if (dialog.exec() != QDialog::Accepted || dialog.selectedFiles().isEmpty())
        return {};
    return dialog.selectedFiles().constFirst();
}

QString QtFileDialogs::chooseFolder(QWidget* owner, const QString& prompt)
{
    return QFileDialog::getExistingDirectory(owner, prompt);
}

} // namespace velmora::platform
