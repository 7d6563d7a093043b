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
    };
    QString openFile(QWidget*, const QString& title, const QString& filterName, const QString& pattern) override
    {
        requests.append({title, filterName, pattern});
        if (answers_.empty())
            return {};
        QString answer = answers_.front();
        answers_.pop_front();
        return answer;
    }
    // The next dialogs answer these paths, in order; without a scripted answer a dialog is
    // cancelled (an empty path).
    void script(const QString& path) { answers_.push_back(path); }
    QList<Request> requests;

private:
    std::deque<QString> answers_;
};

} // namespace velmora::platform::sim
