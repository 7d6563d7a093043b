#pragma once
// Simulated file opener: records each request and answers with a scripted code.
#include "platform/opener.h"

#include <QList>
#include <QString>
#include <deque>

namespace velmora::platform::sim {

class SimOpener : public FileOpener {
public:
    struct Request {
        QString file;
        QString parameters;
    };
    int open(const QString& file, const QString& parameters = {}) override
    {
        opened.append({file, parameters});
        if (!scripted_.empty()) {
            const int code = scripted_.front();
            scripted_.pop_front();
            return code;
        }
        return result;
    }
    // The next requests answer these codes, in order; after them every request answers result.
    void script(int code) { scripted_.push_back(code); }
    int result = 42;
    QList<Request> opened;

private:
    std::deque<int> scripted_;
};

} // namespace velmora::platform::sim
