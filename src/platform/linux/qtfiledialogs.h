#pragma once
#include "platform/filedialogs.h"

namespace velmora::platform {

// The desktop's file and folder dialogs through QFileDialog.
class QtFileDialogs : public FileDialogs {
public:
    QString openFile(QWidget* owner, const QString& title, const QString& filterName, const QString& pattern) override;
    QString saveFile(QWidget* owner, const QString& title, const QString& filterName, const QString& pattern,
                     const QString& defaultSuffix) override;
    QString chooseFolder(QWidget* owner, const QString& prompt) override;
    // The Qt name filter for a caption and a pattern: "*.*" becomes "*", since a Linux program
    // has no extension, and the caption's own bracketed pattern gives way to the one used.
    static QString nameFilter(const QString& filterName, const QString& pattern);
};

} // namespace velmora::platform
