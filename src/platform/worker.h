#pragma once
// Runs blocking work off the user-interface thread.
#include <functional>

class QObject;

namespace velmora::platform {

class Worker {
public:
    virtual ~Worker() = default;
    // Runs job on a worker thread; the function it returns then runs on the user-interface
    // thread, unless context has been destroyed by then. Completions of separate jobs may
    // arrive in any order: callers that need an order keep it themselves.
    virtual void run(QObject* context, std::function<std::function<void()>()> job) = 0;
};

} // namespace velmora::platform
