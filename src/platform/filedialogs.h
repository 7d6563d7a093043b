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
    // Lets the user choose a file to write, in an existing folder. A name typed without an
    // extension gets defaultSuffix; choosing an existing file asks before replacing it. Returns
    // the chosen path, or an empty text when the user cancels.
    virtual QString saveFile(QWidget* owner, const QString& title, const QString& filterName,
                             const QString& pattern, const QString& defaultSuffix) = 0;
    // Lets the user choose a folder under the prompt. Returns its path (without a trailing
    // separator, except for the root), or an empty text when the user chooses none.
    virtual QString chooseFolder(QWidget* owner, const QString& prompt) = 0;
};

} // namespace velmora::platform
