#pragma once

#include <QString>

/// Draws the user's attention to a failure that no dialog tells of: what a beep is for. Whoever
/// can sound or show something implements it and passes it down to those who fail.
class PXAlert {
public:
    /// The failure has been logged; `message` is the log's. Any thread; does not wait.
    virtual void beep(const QString &message) = 0;

protected:
    ~PXAlert() = default;
};
