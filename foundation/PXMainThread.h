#pragma once

#include <QMetaObject>
#include <QObject>

#include <utility>

/// Hands work to the thread on which `context` lives: for our engines the main thread.
namespace PXMainThread {

/// Queued, never waits. Dropped when `context` has gone by the time its turn comes.
template <typename Function> void post(QObject *context, Function &&function)
{
    QMetaObject::invokeMethod(context, std::forward<Function>(function), Qt::QueuedConnection);
}

/// Waits until it has run; runs at once when the caller is on that thread already.
template <typename Function> void call(QObject *context, Function &&function)
{
    const bool isThere = context->thread()->isCurrentThread();
    QMetaObject::invokeMethod(context, std::forward<Function>(function),
                              isThere ? Qt::DirectConnection : Qt::BlockingQueuedConnection);
}

} // namespace PXMainThread
