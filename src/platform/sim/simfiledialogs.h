#pragma once
// Simulated file dialogs: record each dialog and answer with scripted paths.
#include "platform/filedialogs.h"

#include <QList>
#include <QString>
#include <deque>

namespace velmora::platform::sim {

class SimFileDialogs : public FileDialogs {
public:
    struct Request {
        QString title, filterName, pattern;
        QString defaultSuffix; // save dialogs only
    };
    QString openFile(QWidget*, const QString& title, const QString& filterName, const QString& pattern) override
    {
        requests.append({title, filterName, pattern, {}});
        return next(answers_);
    }
    QString saveFile(QWidget*, const QString& title, const QString& filterName, const QString& pattern,
                     const QString& defaultSuffix) override
    {
        saveRequests.append({title, filterName, pattern, defaultSuffix});
        return next(saveAnswers_);
    }
    QString chooseFolder(QWidget*, const QString& prompt) override
    {
        folderPrompts << prompt;
        return next(folderAnswers_);
    }
    // The next open dialogs answer these paths, in order; without a scripted answer a dialog is
    // cancelled (an empty path). The same for save dialogs and folder browsers.
    void script(const QString& path) { answers_.push_back(path); }
    void scriptSave(const QString& path) { saveAnswers_.push_back(path); }
    void scriptFolder(const QString& path) { folderAnswers_.push_back(path); }
    QList<Request> requests;
    QList<Request> saveRequests;
    QList<QString> folderPrompts;

private:
    static QString next(std::deque<QString>& answers)
    {
        if (answers.empty())
            return {};
        QString answer = answers.front();
        answers.pop_front();
        return answer;
    }
    std::deque<QString> answers_, saveAnswers_, folderAnswers_;
};

} // namespace velmora::platform::sim
