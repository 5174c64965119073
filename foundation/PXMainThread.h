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

} // namespace PXMainThread
