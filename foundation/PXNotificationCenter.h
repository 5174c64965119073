#pragma once

#include "foundation/PXObservation.h"

#include <QString>
#include <QVariantMap>

#include <functional>

/// Tells whoever asked that something happened, without sender and observer knowing each other.
/// Any thread; an observer is called on the thread that posts, before `postNotificationName`
/// returns.
class PXNotificationCenter final {
public:
    using Function
        = std::function<void(const QString &name, const void *sender, const QVariantMap &userInfo)>;

    /// Lives until the program ends.
    static PXNotificationCenter &defaultCenter();

    /// `sender` is only compared, never used; nullptr observes every sender of `name`.
    PXObservation addObserver(const QString &name, const void *sender, Function function);

    /// `userInfo` is what the name promises.
    void postNotificationName(const QString &name, const void *sender,
                              const QVariantMap &userInfo = {});

private:
    PXObservers<QString, const void *, QVariantMap> _observers;
};
