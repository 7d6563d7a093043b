#pragma once
// The common file dialogs.
#include <QString>

class QWidget;

namespace velmora::platform {

class FileDialogs {
public:
    virtual ~FileDialogs() = default;
    // Lets the user choose an existing file. filterName is the filter's caption, for example
    // "Soundfiles (*.wav)", and pattern its file pattern ("*.wav"; "*.*" means every file, with
    // or without an extension). Returns the chosen path, or an empty text when the user cancels.
    virtual QString openFile(QWidget* owner, const QString& title, const QString& filterName,
                             const QString& pattern) = 0;
};

} // namespace velmora::platform
